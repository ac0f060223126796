// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http::simulation {

// Numbers that are the same everywhere for the same seed, which the standard library's distributions are not.
class Random {
 public:
    explicit Random(std::uint64_t seed) : state_(seed) { next(); }

    // splitmix64
    std::uint64_t next() {
        state_ += 0x9E3779B97F4A7C15U;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31U);
    }

    // 0 to `count` - 1.
    std::int64_t below(std::int64_t count) {
        return static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(count));
    }
    std::int64_t between(std::int64_t first, std::int64_t last) { return first + below(last - first + 1); }
    bool oneIn(std::int64_t count) { return below(count) == 0; }

 private:
    std::uint64_t state_;
};

}  // namespace kel::http::simulation
