// SPDX-License-Identifier: MIT
#include "kel-http/model/HeaderLine.h"

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

}  // namespace

tl::optional<HeaderLine> parseHeaderLine(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return tl::nullopt;
    if (!endsWithCrLf(line)) return tl::nullopt;
    const std::string_view name = trimmed(line.data(), line.data() + colon);
    if (name.empty()) return tl::nullopt;
    return HeaderLine{name, trimmed(line.data() + colon + 1, line.data() + line.size())};
}

}  // namespace kel::http
