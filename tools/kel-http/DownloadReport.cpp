// SPDX-License-Identifier: MIT
#include "DownloadReport.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "JsonReport.h"
#include "common/FailureName.h"

namespace kel::http::tool {
namespace {

using Json = nlohmann::ordered_json;

std::string_view outcome_of(const DownloadResult& result) {
    if (result.code == Success) return "saved";
    return result.code == Interrupted ? "cancelled" : "error";
}

std::string_view error_name(const DownloadResult& result) {
    if (result.code == StatusError) return "Status";
    if (result.code == LocalFileError) return "File";
    if (result.code == ChecksumError) return "Checksum";
    return result.failure ? failure_name(*result.failure) : "Incomplete";
}

Json error_of(const DownloadResult& result) {
    Json error = {{"name", error_name(result)}, {"message", result.message}};
    if (!result.advice.empty()) error["advice"] = fmt::format("{}", fmt::join(result.advice, "; "));
    return error;
}

}  // namespace

std::string explain(const DownloadTarget& target, const DownloadResult& result) {
    std::string text = fmt::format("download {}: {}", target.url, result.message);
    for (const std::string& sentence : result.advice) text += fmt::format("\n  ({})", sentence);
    return text;
}

std::string checksum_line(const DownloadResult& result) {
    std::string name;
    for (const char c : result.file) {
        if (c == '\\') {
            name += "\\\\";
        } else if (c == '\n') {
            name += "\\n";
        } else {
            name += c;
        }
    }
    return fmt::format("{}{}  {}\n", name == result.file ? "" : "\\", result.sha256, name);
}

std::string json_line(const DownloadTarget& target, const DownloadResult& result) {
    Json report;
    report["request"] = {{"method", "GET"}, {"url", target.url}};
    report["outcome"] = outcome_of(result);
    report["exit_code"] = int{result.code};
    report["path"] = target.path;
    report["file"] = result.file.empty() ? Json() : Json(result.file);
    report["bytes"] = result.bytes;
    report["resumed_from"] = result.resumed_from;
    if (result.status != 0) report["status"] = result.status;
    if (!result.sha256.empty()) report["sha256"] = result.sha256;
    if (result.timing) report["timing"] = timing_of(*result.timing);
    if (outcome_of(result) == "error") report["error"] = error_of(result);
    return report.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kel::http::tool
