// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <cstddef>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

namespace kel::http {

// Header lines as libcurl wants them, without memory of their own as long as they are few. libcurl reads them only, and has to be
// done with them before they go or change. Engine thread.
class HeaderList {
 public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;

    // What follows takes no more memory, up to so many lines, the names and values of which have so many bytes in all.
    // Throws std::bad_alloc, as add() does.
    void reserve(std::size_t lines, std::size_t bytes);
    // "name: value", without a zero byte in it.
    void add(std::string_view name, std::string_view value);
    // A whole line that is there for ever.
    void add(const char* line);

    // The list, to which nothing is added any more; null when it is empty.
    curl_slist* link();

 private:
    // Enough for what most requests send.
    std::array<std::byte, 256> room;
    // Beyond that, the heap: the program's default for such resources may be no good on this thread.
    std::pmr::monotonic_buffer_resource memory{room.data(), room.size(), std::pmr::new_delete_resource()};
    // Those that are not there for ever, one behind the other, each with a zero byte at its end.
    std::pmr::string text{&memory};
    // In order. The text of a line that stands in `text` is set at the end, as it may move until then.
    std::pmr::vector<curl_slist> nodes{&memory};
};

}  // namespace kel::http
