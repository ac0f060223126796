// SPDX-License-Identifier: MIT
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "logging/Logger.h"

namespace kel::http {

// Levels of the lines that the library writes. A logger writes a line when its verbosity is not below the line's level.
namespace log_level {
constexpr int always = 1;   // written as soon as a logger is not silent
constexpr int error = 1;    // something failed
constexpr int info = 3;     // what the program did to all requests
constexpr int debug = 4;    // one line a step
constexpr int detail = 8;   // every step of the engine
constexpr int payload = 9;  // bodies, and what is as long
}  // namespace log_level

// Formats a line and writes it, whatever the logger's verbosity.
void writeFormatted(logging::Logger& logger, int level, std::string_view format, fmt::format_args arguments) noexcept;

// Formats a line and writes it, when the logger wants lines of that level: nothing is formatted in vain. The arguments
// are evaluated in any case, so a costly one asks for the level first. What can not be formatted, also for want of
// memory, costs the line its arguments: nothing is thrown.
template <typename... Args>
void writeLine(logging::Logger& logger, int level, std::string_view format, const Args&... args) noexcept {
    if (logger.verbosity() >= level) writeFormatted(logger, level, format, fmt::make_format_args(args...));
}

}  // namespace kel::http
