// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"
#include "ko/host.h"

namespace kel::http::tool {

// What the library asks its host for, as the command line has it. Looks whether the folders can be used.
//
// Errors: ToolError with LocalFileError.
ko::host::Settings host_settings(const Options& options, const ko::host::LogSink& sink);

}  // namespace kel::http::tool
