// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderList.h"

#include <cstring>

namespace kel::http {
namespace {

constexpr std::string_view separator = ": ";

}  // namespace

void HeaderList::reserve(std::size_t lines, std::size_t bytes) {
    text.reserve(bytes + lines * (separator.size() + 1));
    nodes.reserve(lines);
}

void HeaderList::add(std::string_view name, std::string_view value) {
    nodes.push_back({nullptr, nullptr});
    text.append(name).append(separator).append(value).push_back('\0');
}

void HeaderList::add(const char* line) {
    nodes.push_back({const_cast<char*>(line), nullptr});
}

curl_slist* HeaderList::link() {
    char* next = text.data();
    for (curl_slist& node : nodes) {
        node.next = &node + 1;
        if (node.data != nullptr) continue;
        node.data = next;
        next += std::strlen(next) + 1;
    }
    if (nodes.empty()) return nullptr;
    nodes.back().next = nullptr;
    return &nodes.front();
}

}  // namespace kel::http
