// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Script.h"

namespace kel::http::simulation {

// Some worlds get so many requests that wait for a silent server that the engine waits for all by other means.
void addCrowd(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
