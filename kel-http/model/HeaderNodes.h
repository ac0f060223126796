// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "kel-http/HeaderMap.h"

namespace kel::http {

// Makes header maps of header lines, and of the memory of maps that nobody needs any more: the headers of an answer take
// one or two allocations each otherwise.
//
// One thread.
class HeaderNodes {
 public:
    // More of them are freed, and so is one whose name or value has grown beyond so many bytes.
    static constexpr std::size_t most_kept = 16;
    static constexpr std::size_t most_held_bytes = 64;

    // The headers in `lines`, each of which ends with a line feed. Of repeated headers, whatever their letter case, the
    // first one is kept. Throws std::bad_alloc.
    HeaderMap parse(std::string_view lines);

    // Empties the map and keeps what it was made of.
    void takeBack(HeaderMap& headers) noexcept;

    std::size_t size() const { return count; }

 private:
    void add(HeaderMap& headers, std::string_view name, std::string_view value);

    // Without entries, but with the table of a map that had some.
    HeaderMap empty;
    std::array<HeaderMap::node_type, most_kept> nodes;
    std::size_t count = 0;
};

}  // namespace kel::http
