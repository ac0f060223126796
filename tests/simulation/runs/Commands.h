// SPDX-License-Identifier: MIT
#pragma once

#include "runs/CommandLine.h"

namespace kel::http::simulation {

// Does it, and tells on standard output. The exit status; throws what can not be done.
int execute(const CommandLine& line);

}  // namespace kel::http::simulation
