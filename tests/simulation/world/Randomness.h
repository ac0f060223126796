// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http::simulation {

// OpenSSL's random numbers are this seed's from now on: keys, nonces, and the length of signatures, which shows in what is
// sent. Not for the world outside.
void makeRandomnessRepeatable(std::uint64_t seed);

}  // namespace kel::http::simulation
