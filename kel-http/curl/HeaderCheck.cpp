// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace kel::http {
namespace {

bool breaksLine(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

// A name with a line break in it may be a whole header that was read from a file, so only its beginning is told.
std::string_view tellableName(std::string_view name) {
    constexpr std::string_view ends("\r\n\0:", 4);
    return name.substr(0, name.find_first_of(ends));
}

}  // namespace

std::string headerFault(const std::string& name, const std::string& value) {
    if (name.empty()) return "A request header has an empty name: remove it or name it";
    if (breaksLine(name)) {
        return fmt::format("The name of request header '{}' holds a line break or a zero byte: remove it",
                           tellableName(name));
    }
    if (breaksLine(value)) {
        return fmt::format("The value of request header '{}' holds a line break or a zero byte: remove it",
                           tellableName(name));
    }
    return {};
}

}  // namespace kel::http
