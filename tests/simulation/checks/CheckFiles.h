// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// What downloads have left on the disk: the old file or the whole new one, and nothing beside it.
void checkFiles(const Script& script, const Observation& seen, std::vector<std::string>& faults);

}  // namespace kel::http::simulation
