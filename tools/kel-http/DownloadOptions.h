// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Options.h"

namespace CLI {
class App;
}

namespace kel::http::tool {

// The options of the command download, on the program's one help page.
void add_download_options(CLI::App& app, Options& options);

// The words of a command line, with a checksum that follows --sha256 joined to it: "--sha256=HEX". Without that the
// option would take whatever word stands behind it.
//
// Errors: ToolError with UsageError when the word is a mistyped checksum.
std::vector<std::string> with_joined_checksum(const std::vector<std::string>& words);

// Fills in the targets from the words that the command got; none: it is another command.
//
// Errors: ToolError with UsageError.
void check_download_options(const CLI::App& app, Options& options, const std::vector<std::string>& words);

}  // namespace kel::http::tool
