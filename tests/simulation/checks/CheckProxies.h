// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// Requests go through the proxies that they name, one after the other until an answer comes, and those that have failed lately
// come last, as far as it can be told which have: what others did at the same time hides it.
void checkProxies(const Script& script, const Observation& seen, std::vector<std::string>& faults);

}  // namespace kel::http::simulation
