// SPDX-License-Identifier: MIT
// kel-http: sends an HTTP request from the command line, or downloads files.
#include <fmt/format.h>

#include <exception>
#include <memory>

#include "CommandLine.h"
#include "DownloadCommand.h"
#include "ExplainFailure.h"
#include "Files.h"
#include "HostSettings.h"
#include "JsonReport.h"
#include "LogListener.h"
#include "ProxyVariables.h"
#include "RequestBuilder.h"
#include "StandardStreams.h"
#include "TextReport.h"
#include "ToolError.h"
#include "Transfer.h"
#include "ko/host.h"

namespace kel::http::tool {
namespace {

// The sink stays to the very end of the process, and so does what it needs.
std::shared_ptr<const LogListener> set_up_host(const Options& options) {
    const auto listener = std::make_shared<LogListener>(options);
    ko::host::configure(host_settings(options, [listener](const ko::host::LogLine& line) { listener->hear(line); }));
    check_cookie_folder(options);
    return listener;
}

// Where the body goes on its way in: large files should not be held in memory. A size limit bounds the memory, and then
// a failed write can not be taken for a body beyond the limit. Devices and links must not be replaced.
std::optional<std::string> download_target(const Options& options) {
    if (!options.output || options.size_limit || must_stay(*options.output)) return std::nullopt;
    return options.output;
}

void print(const Options& options, const ResponseData& response) {
    if (options.include_headers) write_to_stdout(head_of(response));
    if (!options.output) write_to_stdout(response.body);
    if (response.timing_data) write_to_stderr(timing_bars(*response.timing_data));
}

int report(const Options& options, const ResponseData& response, bool downloaded) {
    if (options.output && !downloaded) write_file(*options.output, response.body);
    if (options.json) {
        write_to_stdout(json_report(options, response));
    } else {
        print(options, response);
    }
    if (response.status < 400) return Success;
    tell(fmt::format("{} {}: the server answered with status {}", options.method, options.url, response.status));
    return StatusError;
}

int report(const Options& options, const LogListener& log, ErrorData error, bool downloaded) {
    const Secrets& secrets = log.secrets();
    error.message = secrets.conceal(error.message);
    const std::string hint = secrets.conceal(advice(error, log.transfers().about(1).trouble, options));
    if (options.json) write_to_stdout(json_report(options, error, hint));
    tell(explain(error, hint, options));
    return downloaded && error.failure == ClientFailure::WriteFailed ? LocalFileError : TransferError;
}

int report(const Options& options, Cancelled cancelled) {
    if (options.json) write_to_stdout(json_report(options, cancelled));
    tell("cancelled");
    return Interrupted;
}

int report(const Options& options, const LogListener& log, const Outcome& outcome, bool downloaded) {
    if (const auto* const response = std::get_if<ResponseData>(&outcome)) return report(options, *response, downloaded);
    if (const auto* const error = std::get_if<ErrorData>(&outcome)) return report(options, log, *error, downloaded);
    return report(options, Cancelled());
}

int download(const Options& options) {
    DownloadCommand command(options);
    if (!options.use_proxies) clear_proxy_variables();
    return command.run(*set_up_host(options));
}

int run(const Options& options) {
    if (!options.download.targets.empty()) return download(options);
    const RequestConfig request = build_request(options);
    if (options.output) check_target(*options.output);
    if (!options.use_proxies) clear_proxy_variables();
    const auto log = set_up_host(options);
    const std::optional<std::string> target = download_target(options);
    const Outcome outcome = transfer(request, options, target);
    return report(options, *log, outcome, target.has_value());
}

}  // namespace
}  // namespace kel::http::tool

int main(int argc, char** argv) {
    using namespace kel::http::tool;
    try {
        occupy_standard_streams();
        const auto options = parse_command_line(argc, argv);
        return options ? run(*options) : Success;
    } catch (const ToolError& error) {
        tell(error.what());
        return error.exit_code;
    } catch (const std::exception& error) {
        tell(error.what());
        return TransferError;
    }
}
