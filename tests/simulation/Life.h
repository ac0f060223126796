// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>

#include "Observation.h"
#include "Script.h"

namespace kel::http::simulation {

// Lets a script happen, from the making of the engine to its end, and tells what could be seen. With `account` each event
// is written there. On the thread that the process has begun with; one at a time.
Observation live(const Script& script, std::FILE* account = nullptr);

}  // namespace kel::http::simulation
