// SPDX-License-Identifier: MIT
#include "kel-http/model/HeaderLine.h"

#include <algorithm>

namespace kel::http {
namespace {

// Tab, LF, VT, FF and CR stand in one row.
bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view trimmed(const char* begin, const char* end) {
    while (begin != end && isSpace(*begin)) ++begin;
    while (begin != end && isSpace(end[-1])) --end;
    return std::string_view(begin, static_cast<std::size_t>(end - begin));
}

// In this file, so that the loop over all lines takes it in.
inline tl::optional<HeaderLine> parse(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return tl::nullopt;
    if (!endsWithCrLf(line)) return tl::nullopt;
    const std::string_view name = trimmed(line.data(), line.data() + colon);
    if (name.empty()) return tl::nullopt;
    return HeaderLine{name, trimmed(line.data() + colon + 1, line.data() + line.size())};
}

}  // namespace

tl::optional<HeaderLine> parseHeaderLine(std::string_view line) {
    return parse(line);
}

HeaderMap parseHeaderLines(std::string_view lines) {
    HeaderMap headers;
    while (!lines.empty()) {
        const auto length = std::min(lines.find('\n'), lines.size() - 1) + 1;
        if (const auto header = parse(lines.substr(0, length))) headers.emplace(header->name, header->value);
        lines.remove_prefix(length);
    }
    return headers;
}

}  // namespace kel::http
