// SPDX-License-Identifier: MIT
#pragma once

#include <fmt/format.h>

#include <string_view>

namespace kel::http::detail {

// Formats an enumeration by its fixed name: fill, alignment, width and precision as for text, and the presentation
// types none, "s" and "p", which all print the name. Anything else throws fmt::format_error("invalid type specifier").
//
// `name_of(Enum)` is found in the enumeration's own namespace.
template <typename Enum>
struct EnumFormatter : fmt::formatter<fmt::string_view> {
    // Formats the name.
    using Text = fmt::formatter<fmt::string_view>;

    // Reads the specifier, up to the closing brace.
    constexpr auto parse(fmt::format_parse_context& context) -> decltype(context.begin()) {
        const auto begin = context.begin();
        const auto end = end_of_specifier(begin, context.end());
        const char type = begin == end ? '\0' : *(end - 1);
        if (type != '?' && (!is_letter(type) || type == 's')) return Text::parse(context);
        if (type != 'p') throw fmt::format_error("invalid type specifier");

        // Text formatting refuses "p" in some releases of the library, so it sees the specifier without it.
        const auto last = end - 1;
        const char before = begin == last ? '\0' : *(last - 1);
        fmt::format_parse_context without_type(fmt::string_view(begin, static_cast<std::size_t>(last - begin)));
        if (before == '?' || is_letter(before) || Text::parse(without_type) != last) {
            throw fmt::format_error("invalid type specifier");
        }
        return end;
    }

    // Writes the name of `value`.
    template <typename Context>
    auto format(Enum value, Context& context) const -> decltype(context.out()) {
        const std::string_view name = name_of(value);
        // The text formatter's own operation is not const in every release; a copy serves all of them.
        Text text = *this;
        return text.format(fmt::string_view(name.data(), name.size()), context);
    }

 private:
    static constexpr bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

    // The closing brace of this field; a width or precision may be a nested field of its own.
    template <typename Iterator>
    static constexpr Iterator end_of_specifier(Iterator position, Iterator end) {
        for (int depth = 0; position != end; ++position) {
            if (*position == '{') ++depth;
            if (*position == '}' && depth-- == 0) break;
        }
        return position;
    }
};

}  // namespace kel::http::detail
