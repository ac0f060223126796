// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <tl/optional.hpp>

namespace kel::http {

struct HeaderLine {
    std::string name;
    std::string value;
};

// The name and value of one raw header line, both without white space around them; the value may be empty. Unset for
// what is no header: a line without a colon or without CR LF at its end (the status line, the closing blank line), an
// empty name.
tl::optional<HeaderLine> parseHeaderLine(std::string_view line);

// Whether a raw line begins, or ends, the header block of one answer.
bool isStatusLine(std::string_view line);
bool isBlankLine(std::string_view line);

}  // namespace kel::http
