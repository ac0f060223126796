// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http::simulation {

// How often the world did what.
struct Counters {
    std::int64_t interruptedSends = 0;
    std::int64_t interruptedReceives = 0;
    std::int64_t shortSends = 0;
    std::int64_t shortReceives = 0;
    std::int64_t receives = 0;
    std::int64_t peeks = 0;
    std::int64_t closedReceives = 0;
    std::int64_t resetReceives = 0;
    std::int64_t connects = 0;
    std::int64_t refused = 0;
    std::int64_t neverConnected = 0;
    std::int64_t lookUps = 0;
    std::int64_t slowLookUps = 0;
    std::int64_t failedLookUps = 0;
};

}  // namespace kel::http::simulation
