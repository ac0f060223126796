// SPDX-License-Identifier: MIT
#include "kel-http/client/BodyRoom.h"

#include <algorithm>
#include <exception>

namespace kel::http {

void makeRoom(std::string& body, std::size_t bytes, std::uint64_t announced) noexcept {
    const std::uint64_t needed = std::uint64_t{body.size()} + bytes;
    if (needed <= body.capacity() || announced < needed) return;
    const std::uint64_t doubled = std::max(needed, 2 * std::uint64_t{body.capacity()});
    const std::uint64_t room = std::min(announced, std::max<std::uint64_t>(most_room_at_once, doubled));
    if (room > body.max_size()) return;
    try {
        std::string larger;  // one that has some room already would double it, whatever is asked for
        larger.reserve(static_cast<std::size_t>(room));
        larger.append(body);
        body.swap(larger);
    } catch (const std::exception&) {
        // What arrives may be less, and find its place.
    }
}

}  // namespace kel::http
