// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http::simulation {

// What the process has allocated and not freed yet, by whatever part of it; always zero under a sanitizer, which has an eye on
// that itself.
struct Memory {
    std::int64_t blocks = 0;
    std::int64_t bytes = 0;

    static Memory now();
};

// Descriptors that the process has open.
std::int64_t openDescriptors();

}  // namespace kel::http::simulation
