// SPDX-License-Identifier: MIT
#include "JsonReport.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>

#include "common/FailureName.h"

namespace kel::http::tool {
namespace {

using Json = nlohmann::ordered_json;

bool is_utf8(const std::string& text) {
    try {
        Json(text).dump();
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

// RFC 4648, section 4.
std::string base64(std::string_view bytes) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::string_view group = bytes.substr(i, 3);
        std::uint32_t bits = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += k <= group.size() ? alphabet[bits >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

struct Context {
    const Options& options;
    const std::string& advice;
};

void add_body(Json& report, const Options& options, const std::string& body) {
    if (options.output) {
        report["body_file"] = *options.output;
    } else if (is_utf8(body)) {
        report["body"] = body;
    } else {
        report["body_base64"] = base64(body);
    }
}

void add(Json& report, const Context& context, const ResponseData& response) {
    report["outcome"] = "response";
    report["status"] = response.status;
    report["headers"] = std::map<std::string, std::string>(response.headers.begin(), response.headers.end());
    add_body(report, context.options, response.body);
    if (response.timing_data) report["timing"] = timing_of(*response.timing_data);
    report["redirect"] = {{"url", response.redirect_url ? Json(*response.redirect_url) : Json()},
                          {"count", response.redirect_count}};
}

void add(Json& report, const Context& context, const ErrorData& error) {
    report["outcome"] = "error";
    report["error"] = {{"code", static_cast<std::uint32_t>(error.failure)},
                       {"name", failure_name(error.failure)},
                       {"message", error.message}};
    if (!context.advice.empty()) report["error"]["advice"] = context.advice;
}

void add(Json& report, const Context&, Cancelled) {
    report["outcome"] = "cancelled";
}

}  // namespace

nlohmann::ordered_json timing_of(const TimingData& timing) {
    // The look-up alone comes in milliseconds.
    return {{"namelookup_us", timing.namelookup * 1000},
            {"connect_us", timing.connect},
            {"appconnect_us", timing.appconnect},
            {"pretransfer_us", timing.pretransfer},
            {"starttransfer_us", timing.starttransfer},
            {"total_us", timing.total},
            {"redirect_us", timing.redirect}};
}

std::string json_report(const Options& options, const Outcome& outcome, const std::string& advice) {
    Json report;
    report["request"] = {{"method", name_of(options.method)}, {"url", options.url}};
    std::visit([&](const auto& result) { add(report, {options, advice}, result); }, outcome);
    // Header values may hold any bytes; what is no UTF-8 in them is shown as such.
    return report.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kel::http::tool
