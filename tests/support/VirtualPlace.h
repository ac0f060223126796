// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kel::http::test {

// The place of a virtual function among those of its class, as programs that were built before know it: 0 for the
// first one; a destructor takes two.
//
// Such a member pointer is two words, and the place in bytes is the first of them; on most machines its lowest bit says
// that the function is virtual.
template <typename Function>
std::size_t virtualPlace(Function function) {
    std::array<std::uintptr_t, 2> words{};
    static_assert(sizeof(function) == sizeof(words));
    std::memcpy(words.data(), &function, sizeof(words));
    return words[0] / sizeof(void*);
}

}  // namespace kel::http::test
