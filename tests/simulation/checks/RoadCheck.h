// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// Whether a request went only where the model lets it, as often, with what it should have brought along, and ended as that
// road ends: a sentence for each fault, without the request's name.
std::vector<std::string> faultsOnRoad(const Script& script, const Observation& seen, const RequestScript& request);

}  // namespace kel::http::simulation
