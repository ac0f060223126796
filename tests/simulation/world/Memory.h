// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace kel::http::simulation {

// What the process has allocated and not freed yet, by whatever part of it; always zero under a sanitizer, which has an eye on
// that itself.
struct Memory {
    std::int64_t blocks = 0;
    std::int64_t bytes = 0;

    static Memory now();
};

// What is counted, by whatever thread allocates, even one that the world does not know.
extern std::atomic<std::int64_t> counted_blocks;
extern std::atomic<std::int64_t> counted_bytes;

// Descriptors that the process has open.
std::int64_t openDescriptors();

}  // namespace kel::http::simulation
