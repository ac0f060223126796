// SPDX-License-Identifier: MIT
#include "DownloadCommand.h"

#include <algorithm>
#include <csignal>

#include "DownloadReport.h"
#include "Files.h"
#include "TextReport.h"

namespace kel::http::tool {

DownloadCommand::DownloadCommand(const Options& options) : options_(options) {
    for (const DownloadTarget& target : options.download.targets) {
        unreported_.push_back(&downloads_.emplace_back(options, target));
    }
}

int DownloadCommand::run(const LogListener& log) {
    // A file that must not grow further is a failed write, which can be told, not the end of the process.
    std::signal(SIGXFSZ, SIG_IGN);
    {
        Session session(options_);
        start(session.client(), log);
        serve_until_stopped(session);
        for (const Download& download : downloads_) download.cancel(session.client());
    }
    for (Download& download : downloads_) {
        if (!download.has_ended()) download.interrupt();
    }
    report_ended();
    if (output_error_) throw ToolError(*output_error_);
    return exit_code();
}

// Progress begins here: what was made ready before is nobody's waiting time.
void DownloadCommand::start(Client& client, const LogListener& log) {
    display_ = make_progress_display(options_);
    unsigned int request = 0;
    for (Download& download : downloads_) {
        download.start(client, log, ++request, display_->name_of(download.target().path));
    }
}

void DownloadCommand::serve_until_stopped(Session& session) {
    bool is_computing = false;
    while (is_running()) {
        if (session.serve(is_computing ? std::chrono::milliseconds(0) : display_->interval())) return;
        is_computing = compute();
        report_ended();
        if (output_error_) return;
        show();
    }
}

bool DownloadCommand::is_running() const {
    return std::any_of(downloads_.begin(), downloads_.end(), [](const Download& one) { return !one.has_ended(); });
}

bool DownloadCommand::compute() {
    bool has_more_to_do = false;
    for (Download& download : downloads_) has_more_to_do = download.compute() || has_more_to_do;
    return has_more_to_do;
}

void DownloadCommand::show() {
    if (!display_->interval()) return;
    ProgressDisplay::Bars running;
    for (Download& download : downloads_) {
        if (!download.has_ended()) running.push_back(&download.progress());
    }
    display_->show(running);
}

void DownloadCommand::report_ended() {
    unreported_.remove_if([this](const Download* download) {
        if (download->has_ended()) report(*download);
        return download->has_ended();
    });
}

void DownloadCommand::report(const Download& download) {
    const DownloadResult& result = download.result();
    display_->clear();
    if (result.code == Success) display_->finish(download.last_progress());
    if (result.code != Success) tell(explain(download.target(), result));
    if (result.timing && !options_.json) write_to_stderr(timing_bars(*result.timing));
    try {
        print(download.target(), result);
    } catch (const ToolError& error) {
        output_error_ = error;
    }
}

void DownloadCommand::print(const DownloadTarget& target, const DownloadResult& result) const {
    if (options_.json) {
        write_to_stdout(json_line(target, result));
    } else if (!result.sha256.empty() && !result.file.empty()) {
        write_to_stdout(checksum_line(result));
    }
}

int DownloadCommand::exit_code() const {
    ExitCode first = Success;
    for (const Download& download : downloads_) {
        const ExitCode code = download.result().code;
        if (code == Interrupted) return Interrupted;
        if (first == Success) first = code;
    }
    return first;
}

}  // namespace kel::http::tool
