// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"

namespace CLI {
class App;
}

namespace kel::http::tool {

// What is trusted, and who this client is.
void add_tls_options(CLI::App& app, Options& options);

// Errors: ToolError with UsageError, for options that contradict each other.
void check_tls_options(const Options& options);

}  // namespace kel::http::tool
