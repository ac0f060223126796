// SPDX-License-Identifier: MIT
#include "kel-http/client/HeaderLine.h"

namespace kel::http {
namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view white_space = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(white_space);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(white_space) - first + 1);
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

tl::optional<HeaderLine> parseHeaderLine(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return tl::nullopt;
    if (line.size() < 2 || line.substr(line.size() - 2) != "\r\n") return tl::nullopt;
    const std::string_view name = trimmed(line.substr(0, colon));
    if (name.empty()) return tl::nullopt;
    return HeaderLine{std::string(name), std::string(trimmed(line.substr(colon + 1)))};
}

bool isStatusLine(std::string_view line) {
    return startsWith(line, "HTTP/");
}

bool isBlankLine(std::string_view line) {
    return line == "\r\n" || line == "\n";
}

}  // namespace kel::http
