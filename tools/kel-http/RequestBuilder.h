// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"

namespace kel::http::tool {

// The request that the command line asks for, with a Content-Type that suits its body unless one was given. Reads the
// files it needs.
//
// Errors: ToolError.
RequestConfig build_request(const Options& options);

}  // namespace kel::http::tool
