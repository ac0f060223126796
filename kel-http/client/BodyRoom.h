// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kel::http {

// What an announcement alone may take of the memory. Beyond it a body has to have arrived by half.
constexpr std::size_t most_room_at_once = std::size_t{16} * 1024 * 1024;

// Makes room in `body` for the whole of what is announced when the next piece, of `bytes`, does not fit, so that it is not
// moved again and again while it grows. What was announced too small, or not at all, grows as ever, and so does a body for
// which there is no such room.
void makeRoom(std::string& body, std::size_t bytes, std::uint64_t announced) noexcept;

}  // namespace kel::http
