// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace kel::http::tool {

// What the tool tells its caller. The numbers are documented and scripts rely on them.
enum ExitCode : int {
    Success = 0,
    UsageError = 1,
    StatusError = 2,     // the server answered with a status of 400 or more; a download: with none of 200 to 299
    TransferError = 3,   // there is no answer
    LocalFileError = 4,  // a file could not be read or written
    ChecksumError = 5,   // a downloaded file is not the one that was expected
    Interrupted = 130    // as shells have it for Ctrl-C
};

// Ends the tool. The text, for people, says what failed, on what, and what to do.
struct ToolError : std::runtime_error {
    ToolError(ExitCode code, const std::string& text) : std::runtime_error(text), exit_code(code) {}

    ExitCode exit_code;
};

// A wrong command line; the text gets a pointer to the help page.
[[noreturn]] inline void usage_error(const std::string& text) {
    throw ToolError(UsageError, text + "\n  (kel-http --help tells all options)");
}

}  // namespace kel::http::tool
