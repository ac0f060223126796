// SPDX-License-Identifier: MIT
#pragma once

#include "Script.h"

namespace kel::http::simulation {

// Requests that belong together, and moments that matter to them: twins that are answered in the same instant, two that are
// paused at once, an answer as long as its limit. In some worlds they are alone, so that nothing hides what comes of them.
// Draws nothing of what the other parts of a world are made of.
void addKin(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
