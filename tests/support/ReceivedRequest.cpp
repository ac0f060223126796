// SPDX-License-Identifier: MIT
#include "ReceivedRequest.h"

#include <strings.h>

namespace kel::http::test {

namespace {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::optional<std::string> ReceivedRequest::header(const std::string& name) const {
    const std::vector<std::string> values = headers(name);
    if (values.empty()) return std::nullopt;
    return values.front();
}

std::vector<std::string> ReceivedRequest::headers(const std::string& name) const {
    std::vector<std::string> values;
    for (const std::string& line : header_lines) {
        const std::size_t colon = line.find(':');
        if (colon != name.size() || strncasecmp(line.c_str(), name.c_str(), colon) != 0) continue;
        values.push_back(trimmed(line.substr(colon + 1)));
    }
    return values;
}

}  // namespace kel::http::test
