// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// What a caller relies on and did not get: a sentence for each.
std::vector<std::string> faults(const Script& script, const Observation& seen);

}  // namespace kel::http::simulation
