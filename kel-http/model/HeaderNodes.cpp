// SPDX-License-Identifier: MIT
#include "kel-http/model/HeaderNodes.h"

#include <algorithm>
#include <utility>

#include "kel-http/model/HeaderLine.h"

namespace kel::http {
namespace {

// Of the table, whose size is the number of lists in it.
constexpr std::size_t most_lists = 64;

bool isSmall(const HeaderMap::node_type& node) {
    return std::max(node.key().capacity(), node.mapped().capacity()) <= HeaderNodes::most_held_bytes;
}

}  // namespace

HeaderMap HeaderNodes::parse(std::string_view lines) {
    HeaderMap headers = std::exchange(empty, HeaderMap());
    while (!lines.empty()) {
        const auto length = std::min(lines.find('\n'), lines.size() - 1) + 1;
        if (const auto header = parseHeaderLine(lines.substr(0, length))) add(headers, header->name, header->value);
        lines.remove_prefix(length);
    }
    return headers;
}

void HeaderNodes::add(HeaderMap& headers, std::string_view name, std::string_view value) {
    if (count == 0) {
        headers.emplace(name, value);
        return;
    }
    HeaderMap::node_type& node = nodes[count - 1];
    node.key().assign(name);
    node.mapped().assign(value);
    node = headers.insert(std::move(node)).node;  // comes back when the name is there already
    if (node.empty()) --count;
}

void HeaderNodes::takeBack(HeaderMap& headers) noexcept {
    while (!headers.empty() && count < most_kept) {
        HeaderMap::node_type node = headers.extract(headers.begin());
        if (isSmall(node)) nodes[count++] = std::move(node);
    }
    headers.clear();
    if (headers.bucket_count() <= most_lists) empty = std::move(headers);
}

}  // namespace kel::http
