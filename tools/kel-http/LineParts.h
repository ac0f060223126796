// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace kel::http::tool {

// Taking lines of the engine's log apart. The results are parts of the text that was given.

// What follows `beginning`; nothing when the text begins otherwise.
std::optional<std::string_view> after(std::string_view beginning, std::string_view text);

// 7 for "(7) text". 0 when the line begins otherwise.
unsigned int request_id_of(std::string_view line);

// "(7) text" without "(7) ". What begins otherwise is returned whole.
std::string_view without_request_id(std::string_view line);

// What stands between the first and the last "'" of the text. Empty when there are no two of them.
std::string_view quoted(std::string_view text);

std::vector<std::string_view> lines_of(std::string_view text);

}  // namespace kel::http::tool
