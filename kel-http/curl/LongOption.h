// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>

namespace kel::http {

// Whether a number can be given to one of libcurl's long-valued options: with 32 bits, not everything beyond 2 GiB can.
constexpr bool fitsLongOption(std::uintmax_t value) {
    return value <= static_cast<std::uintmax_t>(std::numeric_limits<long>::max());
}

}  // namespace kel::http
