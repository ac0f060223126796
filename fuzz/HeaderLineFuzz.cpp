// SPDX-License-Identifier: MIT
// Any text as the headers of an answer, and as one line of them.
#include "kel-http/model/HeaderLine.h"
#include "kel-http/model/HeaderNodes.h"

#include <fmt/format.h>

#include <cstdint>

#include "ko/assert.h"

namespace kel::http {
namespace {

constexpr std::string_view spaces = " \t\n\v\f\r";

bool isWithin(std::string_view part, std::string_view whole) {
    return part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size();
}

bool hasNoSpaceAround(std::string_view text) {
    return text.empty() ||
           (spaces.find(text.front()) == std::string_view::npos && spaces.find(text.back()) == std::string_view::npos);
}

void checkLine(std::string_view line) {
    const auto header = parseHeaderLine(line);
    if (!header) return;
    const auto& [name, value] = *header;
    KO_ASSERT(endsWithCrLf(line));
    KO_ASSERT(!name.empty() && name.find(':') == std::string_view::npos);
    KO_ASSERT(isWithin(name, line) && isWithin(value, line));
    KO_ASSERT(hasNoSpaceAround(name) && hasNoSpaceAround(value));

    // What was understood means the same when it is written down again.
    const std::string written = fmt::format("{}: {}\r\n", name, value);
    const auto again = parseHeaderLine(written);
    KO_ASSERT(again && again->name == name && again->value == value);
}

void checkLines(std::string_view lines) {
    HeaderMap expected;
    for (auto rest = lines; rest.find('\n') != std::string_view::npos; rest.remove_prefix(rest.find('\n') + 1)) {
        const std::string_view line = rest.substr(0, rest.find('\n') + 1);
        checkLine(line);
        // insert() leaves the first of equal names alone.
        if (const auto header = parseHeaderLine(line))
            expected.insert({std::string(header->name), std::string(header->value)});
    }
    HeaderNodes nodes;
    HeaderMap headers = nodes.parse(lines);
    KO_ASSERT(headers == expected);
    nodes.takeBack(headers);
    KO_ASSERT(nodes.parse(lines) == expected);
}

}  // namespace
}  // namespace kel::http

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    kel::http::checkLine(text);
    kel::http::checkLines(text);
    return 0;
}
