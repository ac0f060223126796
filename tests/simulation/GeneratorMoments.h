// SPDX-License-Identifier: MIT
#pragma once

#include "Script.h"

namespace kel::http::simulation {

// In some worlds troubles end while callers still ask. Draws nothing of what the other parts of a world are made of.
void addCalm(Script& script, std::uint64_t seed);

// Moments that chance alone hardly ever hits: answers that end before their first byte, and callers who act in the very
// instant in which an answer comes.
void addMoments(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
