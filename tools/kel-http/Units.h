// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kel::http::tool {

// "500ms", "2s", "1.5m", and "2" for two seconds. What is shorter than a millisecond counts as one, 0 is 0. Nothing
// for any other text, and for more than a year.
std::optional<std::chrono::milliseconds> parse_duration(std::string_view text);

// "1000", "64K", "1.5M", "2G", with 1024 bytes to the K. Nothing for any other text, and for more than 4294967295.
std::optional<std::uint32_t> parse_bytes(std::string_view text);

}  // namespace kel::http::tool
