// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// What callers are told of how far their downloads have come, and that a file with which one goes on is whole in the end.
void checkProgress(const Script& script, const Observation& seen, std::vector<std::string>& faults);

}  // namespace kel::http::simulation
