// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"
#include "ko/host.h"

namespace kel::http::tool {

// What the library asks its host for, as the command line has it. Looks whether the folders can be used.
//
// Errors: ToolError with LocalFileError.
ko::host::Settings host_settings(const Options& options, const ko::host::LogSink& sink);

// That cookies can be kept where the library keeps them on its own, if they are to be: once the host has been set up.
//
// Errors: ToolError with LocalFileError.
void check_cookie_folder(const Options& options);

}  // namespace kel::http::tool
