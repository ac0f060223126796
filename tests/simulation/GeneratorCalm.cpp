// SPDX-License-Identifier: MIT
#include "GeneratorCalm.h"

#include "world/Random.h"

namespace kel::http::simulation {

void addCalm(Script& script, std::uint64_t seed) {
    constexpr std::uint64_t own = 0xCA1;
    Random random(seed * 31 + own);
    if (random.oneIn(3)) script.world.calmAt = random.between(1, 3'000'000);
}

}  // namespace kel::http::simulation
