// SPDX-License-Identifier: MIT
#include "ko/to_hex.h"

#include <string_view>

namespace ko {

std::string to_hex(span<const unsigned char> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

}  // namespace ko
