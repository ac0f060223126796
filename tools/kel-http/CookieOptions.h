// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"

namespace CLI {
class App;
}

namespace kel::http::tool {

// What is remembered from one run to the next.
void add_cookie_options(CLI::App& app, Options& options);

// Errors: ToolError with UsageError, for options that contradict each other.
void check_cookie_options(const Options& options);

}  // namespace kel::http::tool
