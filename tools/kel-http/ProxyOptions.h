// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"

namespace CLI {
class App;
}

namespace kel::http::tool {

// The way to the server.
void add_proxy_options(CLI::App& app, Options& options);

// Splits the login and looks its password up in the environment where none is given. The engine knows the login of a
// single proxy only: with several it is put into their URLs.
//
// Errors: ToolError with UsageError. Its text holds no password.
void check_proxy_options(const CLI::App& app, Options& options);

}  // namespace kel::http::tool
