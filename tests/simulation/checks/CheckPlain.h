// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// Where nothing stands in the way the answer comes, as soon as its last byte has, unless its caller pauses.
void checkPlain(const Script& script, const Observation& seen, std::vector<std::string>& faults);

}  // namespace kel::http::simulation
