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

// Where neither is known, what the engine heard from below may tell more than the failure does.
std::string advice_on_other(const ErrorData& error, const ConnectionTrouble& trouble, const Options& options) {
    std::string about_tls = tls_advice(trouble, options);
    if (!about_tls.empty()) return about_tls;
    if (error.message.find(" 407") != std::string::npos) {
        return "the proxy wants a login that it knows: give it with --proxy-user";
    }
    if (options.size_limit) return "is the body larger than --size-limit?";
    return trouble.words() == error.message ? "" : trouble.words();
}

}  // namespace

std::string advice(const ErrorData& error, const ConnectionTrouble& trouble, const Options& options) {
    switch (error.failure) {
        case ClientFailure::InvalidUrl:
            return "write it as http://host/path or https://host/path";
        case ClientFailure::ResolveFailed:
            return options.proxies.empty() ? "check the host's name and the network"
                                           : "check the proxy's name, the host's name and the network";
        case ClientFailure::ConnectFailed:
            return options.proxies.empty() ? "is the server running, and is the port right?"
                                           : "is the proxy running, and is its port right?";
        case ClientFailure::Timeout:
            return options.timeout.count() != 0 ? "give it longer with --timeout" : "is the server reachable?";
        case ClientFailure::WriteFailed:
            return write_advice(options);
        case ClientFailure::Other:
            return advice_on_other(error, trouble, options);
        case ClientFailure::AuthFailure:
        case ClientFailure::RangeError:
            break;
    }
    return {};
}

std::string explain(const ErrorData& error, const std::string& advice, const Options& options) {
    const std::string reason = error.message.empty() ? "the reason is not known" : error.message;
    return fmt::format("{} {}: {}{}", options.method, options.url, reason,
                       advice.empty() ? advice : fmt::format("\n  ({})", advice));
}

}  // namespace kel::http::tool
