// SPDX-License-Identifier: MIT
#include "ExplainFailure.h"

#include <fmt/format.h>

#include <string_view>

namespace kel::http::tool {
namespace {

std::string write_advice(const Options& options) {
    if (options.size_limit) return "the body is larger than --size-limit";
    return options.output ? fmt::format("is there room for '{}'?", *options.output) : "";
}

std::string advice(const ErrorData& error, const Options& options) {
    switch (error.failure) {
        case ClientFailure::InvalidUrl:
            return "write it as http://host/path or https://host/path";
        case ClientFailure::ResolveFailed:
            return "check the host's name and the network";
        case ClientFailure::ConnectFailed:
            return "is the server running, and is the port right?";
        case ClientFailure::Timeout:
            return options.timeout.count() != 0 ? "give it longer with --timeout" : "is the server reachable?";
        case ClientFailure::WriteFailed:
            return write_advice(options);
        case ClientFailure::Other:
            if (error.message.find("SSL") != std::string::npos) return "name the certificates to trust with --ca-file";
            return options.size_limit ? "is the body larger than --size-limit?" : "";
        case ClientFailure::AuthFailure:
        case ClientFailure::RangeError:
            break;
    }
    return {};
}

}  // namespace

std::string explain(const ErrorData& error, const Options& options) {
    const std::string hint = advice(error, options);
    const std::string reason = error.message.empty() ? "the reason is not known" : error.message;
    return fmt::format("{} {}: {}{}", options.method, options.url, reason,
                       hint.empty() ? hint : fmt::format("\n  ({})", hint));
}

}  // namespace kel::http::tool
