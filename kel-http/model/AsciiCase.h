// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <string_view>

// Letter case as HTTP and URLs know it: of ASCII letters only, whatever the locale.
namespace kel::http {

constexpr char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool equalIgnoringCase(char left, char right) {
    return asciiLower(left) == asciiLower(right);
}

inline bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(), equalIgnoringCase);
}

}  // namespace kel::http
