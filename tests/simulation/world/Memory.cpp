// SPDX-License-Identifier: MIT
#include "world/Memory.h"

#include <filesystem>
#include <iterator>

namespace kel::http::simulation {

std::atomic<std::int64_t> counted_blocks{0};
std::atomic<std::int64_t> counted_bytes{0};

Memory Memory::now() {
    return {counted_blocks.load(std::memory_order_relaxed), counted_bytes.load(std::memory_order_relaxed)};
}

std::int64_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

}  // namespace kel::http::simulation
