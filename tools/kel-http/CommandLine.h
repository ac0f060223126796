// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include "Options.h"

namespace kel::http::tool {

// Reads the command line. Nothing: it asked for the help page or the version, which has been printed.
//
// Errors: ToolError with UsageError.
std::optional<Options> parse_command_line(int argc, const char* const* argv);

}  // namespace kel::http::tool
