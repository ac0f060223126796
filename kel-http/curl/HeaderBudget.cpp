// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderBudget.h"

#include <algorithm>

#include "kel-http/model/HeaderLine.h"

namespace kel::http {
namespace {

// "HTTP/1.1 401 Unauthorized", "HTTP/2 407"
bool isChallenge(std::string_view status_line) {
    const std::string_view status = status_line.substr(std::min(status_line.find(' '), status_line.size()));
    return status.substr(0, 4) == " 401" || status.substr(0, 4) == " 407";
}

bool isBlank(std::string_view line) {
    return line.front() == '\r' || line.front() == '\n';
}

}  // namespace

const char* HeaderBudget::take(std::string_view lines) {
    if (lines.size() > most_bytes - bytes) return "The answer has more than 256 KiB of headers";
    bytes += static_cast<std::uint32_t>(lines.size());
    while (!lines.empty()) {
        const auto length = std::min(lines.find('\n'), lines.size() - 1) + 1;
        if (const char* const fault = takeLine(lines.substr(0, length))) return fault;
        lines.remove_prefix(length);
    }
    return nullptr;
}

const char* HeaderBudget::takeLine(std::string_view line) {
    if (isBlank(line)) return nullptr;
    if (isStatusLine(line)) {
        if (isChallenge(line)) ++challenges;
        return challenges > most_challenges ? "The server or a proxy asks for credentials again and again" : nullptr;
    }
    ++header_lines;
    return header_lines > most_lines ? "The answer has more than 2000 header lines" : nullptr;
}

}  // namespace kel::http
