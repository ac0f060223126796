// SPDX-License-Identifier: MIT
#include "LineParts.h"

#include <charconv>

namespace kel::http::tool {

std::optional<std::string_view> after(std::string_view beginning, std::string_view text) {
    if (text.substr(0, beginning.size()) != beginning) return std::nullopt;
    return text.substr(beginning.size());
}

unsigned int request_id_of(std::string_view line) {
    unsigned int id = 0;
    const auto length = line.size() - without_request_id(line).size();
    if (length > 0) std::from_chars(line.data() + 1, line.data() + length, id);
    return id;
}

std::string_view without_request_id(std::string_view line) {
    const auto end = line.find(") ");
    const bool is_id = !line.empty() && line.front() == '(' && end != std::string_view::npos &&
                       line.find_first_not_of("0123456789", 1) == end;
    return is_id ? line.substr(end + 2) : line;
}

std::string_view quoted(std::string_view text) {
    const auto first = text.find('\'');
    const auto last = text.rfind('\'');
    return first == last ? std::string_view() : text.substr(first + 1, last - first - 1);
}

std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const auto end = text.find('\n');
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

}  // namespace kel::http::tool
