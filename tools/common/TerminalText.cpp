// SPDX-License-Identifier: MIT
#include "common/TerminalText.h"

#include <algorithm>
#include <array>

namespace kel::http::tool {
namespace {

struct Character {
    char32_t code;
    std::size_t bytes;
};

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Character not_utf8{U'\0', 1};

constexpr std::array<Range, 4> joining = {{{0x300, 0x36f}, {0x200b, 0x200f}, {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}}};

constexpr std::array<Range, 10> wide = {{{0x1100, 0x115f},
                                         {0x2e80, 0x303e},
                                         {0x3041, 0xa4cf},
                                         {0xac00, 0xd7a3},
                                         {0xf900, 0xfaff},
                                         {0xfe30, 0xfe6f},
                                         {0xff00, 0xff60},
                                         {0xffe0, 0xffe6},
                                         {0x1f300, 0x1faff},
                                         {0x20000, 0x3fffd}}};

template <std::size_t Count>
bool is_in(const std::array<Range, Count>& ranges, char32_t code) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [code](const Range& range) { return range.first <= code && code <= range.last; });
}

bool continues_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::size_t bytes_after(unsigned char lead) {
    if (lead < 0xC0 || lead > 0xF7) return 1;
    return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
}

// Longer than need be, half of a UTF-16 pair, or beyond the last one.
bool is_ill_formed(const Character& character) {
    constexpr std::array<char32_t, 5> least = {0, 0x80, 0x80, 0x800, 0x10000};
    return character.code < least[character.bytes] || character.code > 0x10ffff ||
           (character.code >= 0xd800 && character.code <= 0xdfff);
}

Character first_of(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) return {lead, 1};
    Character character{0, bytes_after(lead)};
    if (text.size() < character.bytes) return not_utf8;
    character.code = lead & (0x7FU >> character.bytes);
    for (const char byte : text.substr(1, character.bytes - 1)) {
        if (!continues_character(byte)) return not_utf8;
        character.code = character.code << 6U | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return is_ill_formed(character) ? not_utf8 : character;
}

bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code < 0xa0);
}

std::size_t columns_of(const Character& character) {
    if (is_in(joining, character.code)) return 0;
    return is_in(wide, character.code) ? 2 : 1;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character character = first_of(text);
        shown += is_control(character.code) ? "?" : text.substr(0, character.bytes);
        text.remove_prefix(character.bytes);
    }
    return shown;
}

std::size_t columns_of(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = first_of(text);
        columns += columns_of(character);
        text.remove_prefix(character.bytes);
    }
    return columns;
}

std::string_view last_columns(std::string_view text, std::size_t columns) {
    for (auto taken = columns_of(text); taken > columns;) {
        const Character first = first_of(text);
        taken -= columns_of(first);
        text.remove_prefix(first.bytes);
    }
    return text;
}

}  // namespace kel::http::tool
