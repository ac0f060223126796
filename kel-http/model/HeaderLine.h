// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>
#include <tl/optional.hpp>

namespace kel::http {

// Views into the raw line.
struct HeaderLine {
    std::string_view name;
    std::string_view value;
};

// The name and value of one raw header line, both without white space around them; the value may be empty. Unset for
// what is no header: a line without a colon or without CR LF at its end (the status line, the closing blank line), an
// empty name.
tl::optional<HeaderLine> parseHeaderLine(std::string_view line);

inline bool endsWithCrLf(std::string_view line) {
    return line.size() >= 2 && line[line.size() - 2] == '\r' && line.back() == '\n';
}

// Whether a raw line begins the header block of one answer.
inline bool isStatusLine(std::string_view line) {
    return line.substr(0, 5) == "HTTP/";
}

// Whether the last of these raw lines ends such a block.
inline bool endsWithBlankLine(std::string_view lines) {
    if (lines.empty() || lines.back() != '\n') return false;
    lines.remove_suffix(1);
    if (!lines.empty() && lines.back() == '\r') lines.remove_suffix(1);
    return lines.empty() || lines.back() == '\n';
}

}  // namespace kel::http
