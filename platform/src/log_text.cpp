// SPDX-License-Identifier: MIT
#include "log_text.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace logging {
namespace {

constexpr unsigned char byte_at(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// What the first byte of several says: how many they are, and which letters need that many. Everything below is a longer
// form of what has a shorter one.
struct Form {
    std::size_t bytes;
    std::uint32_t first_bits;
    std::uint32_t lowest;
};

Form form_of(unsigned char first) {
    if (first >= 0xC0 && first < 0xE0) return {2, first & 0x1FU, 0x80};
    if (first >= 0xE0 && first < 0xF0) return {3, first & 0x0FU, 0x800};
    if (first >= 0xF0 && first < 0xF8) return {4, first & 0x07U, 0x10000};
    return {0, 0, 0};
}

// C1, which terminals obey as well, the halves of UTF-16, and what lies beyond the last letter.
bool is_shown(std::uint32_t letter) {
    return letter >= 0xA0 && letter <= 0x10FFFF && (letter < 0xD800 || letter > 0xDFFF);
}

// How many bytes the letter has with which `text` begins; 0 when its first byte can not be shown.
std::size_t shown_letter(std::string_view text) {
    const unsigned char first = byte_at(text, 0);
    if (first < 0x80) return (first >= 0x20 && first != 0x7F) || first == '\t' ? 1 : 0;
    const Form form = form_of(first);
    if (form.bytes == 0 || form.bytes > text.size()) return 0;
    std::uint32_t letter = form.first_bits;
    for (std::size_t i = 1; i < form.bytes; ++i) {
        const unsigned char next = byte_at(text, i);
        if ((next & 0xC0U) != 0x80U) return 0;
        letter = (letter << 6U) | (next & 0x3FU);
    }
    return letter >= form.lowest && is_shown(letter) ? form.bytes : 0;
}

// The length of the beginning that can be shown.
std::size_t shown_length(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size()) {
        const std::size_t bytes = shown_letter(text.substr(length));
        if (bytes == 0) break;
        length += bytes;
    }
    return length;
}

void append_escaped(std::string& buffer, unsigned char byte) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const std::array<char, 4> escaped = {'\\', 'x', digits[byte >> 4U], digits[byte & 0xFU]};
    buffer.append(escaped.data(), escaped.size());
}

}  // namespace

std::string_view printable(std::string_view text, std::string& buffer) {
    std::size_t shown = shown_length(text);
    if (shown == text.size()) return text;
    buffer.clear();
    while (shown < text.size()) {
        buffer.append(text.substr(0, shown));
        append_escaped(buffer, byte_at(text, shown));
        text.remove_prefix(shown + 1);
        shown = shown_length(text);
    }
    return buffer.append(text);
}

}  // namespace logging
