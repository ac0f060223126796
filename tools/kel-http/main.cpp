// SPDX-License-Identifier: MIT
// kel-http: sends one HTTP request from the command line.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>

#include "CommandLine.h"
#include "ExplainFailure.h"
#include "Files.h"
#include "JsonReport.h"
#include "RequestBuilder.h"
#include "TextReport.h"
#include "ToolError.h"
#include "Transfer.h"
#include "ko/host.h"

namespace kel::http::tool {
namespace {

void tell(const std::string& text) {
    write_to_stderr(fmt::format("kel-http: {}\n", text));
}

void set_up_logging(int verbosity) {
    if (verbosity == 0) return;  // nothing is logged unless the host asks for it
    constexpr std::array<int, 4> levels = {1, 4, 8, 9};
    ko::host::Settings settings;
    settings.log_level = levels[std::min<std::size_t>(static_cast<std::size_t>(verbosity), levels.size()) - 1];
    ko::host::configure(settings);
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

int report(const Options& options, const ErrorData& error, bool downloaded) {
    if (options.json) write_to_stdout(json_report(options, error));
    tell(explain(error, options));
    return downloaded && error.failure == ClientFailure::WriteFailed ? LocalFileError : TransferError;
}

int report(const Options& options, Cancelled cancelled, bool) {
    if (options.json) write_to_stdout(json_report(options, cancelled));
    tell("cancelled");
    return Interrupted;
}

int run(const Options& options) {
    const RequestConfig request = build_request(options);
    if (options.output) check_target(*options.output);
    set_up_logging(options.verbosity);
    const std::optional<std::string> target = download_target(options);
    const Outcome outcome = transfer(request, target);
    return std::visit([&](const auto& result) { return report(options, result, target.has_value()); }, outcome);
}

}  // namespace
}  // namespace kel::http::tool

int main(int argc, char** argv) {
    using namespace kel::http::tool;
    try {
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
