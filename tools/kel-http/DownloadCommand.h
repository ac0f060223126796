// SPDX-License-Identifier: MIT
#pragma once

#include <list>
#include <memory>
#include <optional>

#include "Download.h"
#include "LogListener.h"
#include "Options.h"
#include "ProgressDisplay.h"
#include "Session.h"
#include "ToolError.h"

namespace kel::http::tool {

// The command download: all its files at once, each told as it ends.
class DownloadCommand {
 public:
    // Looks at all files before anything is sent, and before anything is dropped. The options have to stay.
    //
    // Errors: ToolError.
    explicit DownloadCommand(const Options& options);

    // Returns when all have ended: the exit code of the first one, as the command line has them, that has failed. A stop
    // signal cancels what is running, and counts before all else.
    int run(const LogListener& log);

 private:
    void start(Client& client, const LogListener& log);
    void serve_until_stopped(Session& session);
    bool is_running() const;
    bool compute();
    void show();
    void report_ended();
    void report(const Download& download);
    void print(const DownloadTarget& target, const DownloadResult& result) const;
    int exit_code() const;

    const Options& options_;
    std::unique_ptr<ProgressDisplay> display_;
    std::list<Download> downloads_;
    std::list<const Download*> unreported_;
    // Standard output does not take what is printed.
    std::optional<ToolError> output_error_;
};

}  // namespace kel::http::tool
