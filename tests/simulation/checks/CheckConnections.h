// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// What servers can tell: who begins afresh comes over a connection that nobody has used, and who goes on with a file asks
// for what is behind it.
void checkConnections(const Script& script, const Observation& seen, std::vector<std::string>& faults);

}  // namespace kel::http::simulation
