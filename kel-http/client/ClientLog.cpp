// SPDX-License-Identifier: MIT
#include "kel-http/client/ClientLog.h"

#include <algorithm>
#include <array>
#include <functional>
#include <new>
#include <string>
#include <thread>

#include "kel-http/model/AsciiCase.h"
#include "kel-http/model/LogLine.h"
#include "kel-http/protocol.h"

namespace kel::http {
namespace {

using BodyFilter = std::function<std::string(const std::string&)>;
using HeaderFilter = std::function<HeaderMap(const HeaderMap&)>;

constexpr int detailed_verbosity = log_level::payload;
constexpr std::size_t chunk_size = 1024;
constexpr std::size_t chunk_cap = 3;
constexpr std::size_t detailed_chunk_cap = 64;

constexpr std::array<std::string_view, 2> loggable_request_headers = {"trackingid", "warning"};
constexpr std::array<std::string_view, 3> loggable_response_headers = {"location", "retry-after", "warning"};
constexpr std::array<std::string_view, 3> loggable_content_types = {"application/json",
                                                                    "application/x-www-form-urlencoded", "text/html"};

bool is_silent(const LogFilter& filter) {
    return filter.mode == LogFilter::Mode::silent;
}

bool is_detailed(const logging::Logger& logger) {
    return logger.verbosity() >= detailed_verbosity;
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), asciiLower);
    return text;
}

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& table, std::string_view name) {
    return std::find(table.begin(), table.end(), name) != table.end();
}

bool logs_request_payload(const logging::Logger& logger, LogFilter::Mode mode) {
    return mode == LogFilter::Mode::request_payload || mode == LogFilter::Mode::all_payload || is_detailed(logger);
}

// An answer that is no success tells in its body why.
bool logs_response_payload(const logging::Logger& logger, LogFilter::Mode mode, int status) {
    if (is_detailed(logger) || mode == LogFilter::Mode::all_payload) return true;
    if (mode == LogFilter::Mode::quiet_payload) return false;
    return !protocol::ok_status(static_cast<unsigned int>(status));
}

bool is_loggable_content(const HeaderMap& headers) {
    const auto content_type = headers.find("Content-Type");
    if (content_type == headers.end()) return false;
    const std::string value = lower_case(content_type->second);
    return std::any_of(loggable_content_types.begin(), loggable_content_types.end(),
                       [&value](std::string_view type) { return value.find(type) != std::string::npos; });
}

void log_body(logging::Logger& logger, const std::string& body) {
    const std::size_t chunks = body.size() / chunk_size + 1;
    const std::size_t cap = is_detailed(logger) ? detailed_chunk_cap : chunk_cap;
    for (std::size_t index = 0; index < std::min(chunks, cap); ++index) {
        const std::string label = chunks == 1 ? std::string() : fmt::format("[{}/{}]", index + 1, chunks);
        const std::string_view text = std::string_view(body).substr(index * chunk_size, chunk_size);
        writeLine(logger, log_level::debug, " Body{}: {}", label, text);
    }
}

void log_headers_and_body(bool is_request, logging::Logger& logger, const HeaderMap& headers, const std::string& body,
                          bool log_payload, const HeaderFilter& header_filter, const BodyFilter& body_filter) {
    for (const auto& [name, value] : header_filter ? header_filter(headers) : headers) {
        const std::string lower = lower_case(name);
        if (is_request ? contains(loggable_request_headers, lower) : contains(loggable_response_headers, lower)) {
            writeLine(logger, log_level::debug, " {}: {}", name, value);
        }
    }
    if (!log_payload || !is_loggable_content(headers)) return;
    if (body_filter) {
        log_body(logger, body_filter(body));
    } else {
        log_body(logger, body);
    }
}

}  // namespace

std::size_t thread_tag() {
    return std::hash<std::thread::id>()(std::this_thread::get_id());
}

// Here and below: what there is no memory for costs the rest of the lines, not the request that they tell of.
void log_request(logging::Logger& logger, Client::RequestId id, const RequestConfig& config,
                 const LogFilter& filter) try {
    if (is_silent(filter) || logger.verbosity() < log_level::debug) return;
    writeLine(logger, log_level::debug, "[tid={}]HTTP({}) => {} {}", thread_tag(), id,
              static_cast<std::uint32_t>(config.method),
              filter.url_filter ? filter.url_filter(config.url) : config.url);
    log_headers_and_body(true, logger, config.headers, config.body, logs_request_payload(logger, filter.mode),
                         filter.header_filter, filter.request_body_filter);
} catch (const std::bad_alloc&) {
    return;
}

void log_response(logging::Logger& logger, Client::RequestId id, const ResponseData& data,
                  const LogFilter& filter) try {
    if (is_silent(filter) || logger.verbosity() < log_level::debug) return;
    // Prepared but not used below: the caller's own filter decides, and the allow-list leaves "Set-Cookie" out anyway.
    LogFilter concealing = filter;
    concealing.header_filter = [](const HeaderMap& headers) {
        return replace_header_value(headers, "Set-Cookie", "<concealed>");
    };
    writeLine(logger, log_level::debug, "[tid={}]HTTP({}) <= {}", thread_tag(), id, data.status);
    log_headers_and_body(false, logger, data.headers, data.body,
                         logs_response_payload(logger, filter.mode, data.status), filter.header_filter,
                         filter.response_body_filter);
} catch (const std::bad_alloc&) {
    return;
}

void log_error(logging::Logger& logger, Client::RequestId id, const ErrorData& data, const LogFilter& filter) {
    if (is_silent(filter)) return;
    const auto failure = static_cast<std::uint32_t>(data.failure);
    if (data.message.empty()) {
        writeLine(logger, log_level::error, "[tid={}]HTTP({}) Error: {}", thread_tag(), id, failure);
    } else {
        writeLine(logger, log_level::error, "[tid={}]HTTP({}) Error: {} ({})", thread_tag(), id, failure, data.message);
    }
}

void log_cancel(logging::Logger& logger, Client::RequestId id, const LogFilter& filter) {
    if (is_silent(filter)) return;
    writeLine(logger, log_level::debug, "[tid={}]HTTP({}) Cancelling", thread_tag(), id);
}

HeaderMap replace_header_value(const HeaderMap& headers, const std::string& name, const std::string& replacement) {
    HeaderMap replaced = headers;
    if (const auto found = replaced.find(name); found != replaced.end()) found->second = replacement;
    return replaced;
}

}  // namespace kel::http
