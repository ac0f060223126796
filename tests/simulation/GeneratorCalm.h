// SPDX-License-Identifier: MIT
#pragma once

#include "Script.h"

namespace kel::http::simulation {

// In some worlds all troubles end while callers still ask; draws nothing of what the other worlds are made of.
void addCalm(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
