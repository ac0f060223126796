// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Script.h"

namespace kel::http::simulation {

// Adds proxies, lying servers, credentials, dead addresses and what befalls networks to the world of a seed, in half of
// all worlds.
void addNetworkTroubles(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
