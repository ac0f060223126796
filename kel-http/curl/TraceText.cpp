// SPDX-License-Identifier: MIT
#include "kel-http/curl/TraceText.h"

#include <algorithm>
#include <locale>

#include "kel-http/model/AsciiCase.h"

namespace kel::http {
namespace {

constexpr std::string_view mask = "xxxxxx";

std::string concealHeaderLine(std::string_view line) {
    for (const std::string_view name : {std::string_view("authorization:"), std::string_view("proxy-authorization:")}) {
        if (startsWithIgnoringCase(line, name))
            return std::string(line.substr(0, name.size())).append(" ").append(mask);
    }
    constexpr std::string_view marker = "Authorization:";
    if (const auto position = line.find(marker); position != std::string_view::npos) {
        return std::string(line.substr(0, position)).append(marker).append(" ").append(mask);
    }
    return std::string(line);
}

// A value may hold brackets itself, and libcurl cuts long lines: only a bracket at the very end closes it.
std::string concealTextLine(std::string_view line) {
    constexpr std::string_view marker = "authorization: ";
    const auto* const found = std::search(line.begin(), line.end(), marker.begin(), marker.end(), equalIgnoringCase);
    if (found == line.end()) return std::string(line);
    const auto value = static_cast<std::size_t>(found - line.begin()) + marker.size();
    std::string concealed(line.substr(0, value));
    concealed.append(mask);
    if (line.back() == ']') concealed.push_back(']');
    return concealed;
}

}  // namespace

std::string concealCredentials(curl_infotype type, std::string_view line) {
    if (type == CURLINFO_HEADER_OUT) return concealHeaderLine(line);
    if (type == CURLINFO_TEXT) return concealTextLine(line);
    return std::string(line);
}

std::string_view trimmed(std::string_view text) {
    const std::locale locale;
    const auto isSpace = [&locale](char c) { return std::isspace(c, locale); };
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace kel::http
