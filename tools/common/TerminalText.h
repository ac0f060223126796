// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kel::http::tool {

// UTF-8 on a terminal.

// A text without what a terminal would obey rather than show, and without what is no UTF-8: '?' stands there.
std::string printable(std::string_view text);

// How many columns a printable text takes: two for each letter of the East, none for an accent that joins the letter
// before it.
std::size_t columns_of(std::string_view text);

// The longest end of a printable text that takes no more than so many columns.
std::string_view last_columns(std::string_view text, std::size_t columns);

}  // namespace kel::http::tool
