// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// Silence where it is promised, hooks where they belong, and requests that say what their callers said.
void checkCallers(const Script& script, const Observation& seen, std::vector<std::string>& faults);

}  // namespace kel::http::simulation
