// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Script.h"

namespace kel::http::simulation {

// Adds to a world what callers do and ask for beyond the usual. The seed's own numbers: the rest of the world stays.
void addCallers(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
