// SPDX-License-Identifier: MIT
#include "ko/assert.h"

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace ko {
namespace {

iovec piece(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};  // writev() only reads
}

}  // namespace

void assertion_failed(const char* expression, const char* file, int line, const char* function) noexcept {
    std::array<char, 16> digits{};
    const auto end = std::to_chars(digits.begin(), digits.end(), line).ptr;
    const std::string_view number(digits.data(), static_cast<std::size_t>(end - digits.data()));

    // One call, so that the lines of two failing threads do not mix.
    const std::array<iovec, 8> message{piece(file),       piece(":"),          piece(number),
                                       piece(": "),       piece(function),     piece(": Assertion '"),
                                       piece(expression), piece("' failed.\n")};
    [[maybe_unused]] const auto written = writev(STDERR_FILENO, message.data(), static_cast<int>(message.size()));
    std::abort();
}

}  // namespace ko
