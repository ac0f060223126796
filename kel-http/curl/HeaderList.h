// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kel::http {

// Header lines as libcurl wants them, in two pieces of memory however many there are. libcurl reads them only, and has to be
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
    // Those that are not there for ever, one behind the other, each with a zero byte at its end.
    std::string text;
    // In order. The text of a line that stands in `text` is set at the end, as it may move until then.
    std::vector<curl_slist> nodes;
};

}  // namespace kel::http
