// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "fixture/LogCapture.h"

namespace kel::http::test {

// How gmock shows a line.
inline void PrintTo(const CapturedLine& line, std::ostream* stream) {
    *stream << line.logger << '/' << line.level << ": " << line.text;
}

MATCHER_P3(IsLine, logger, level, text, "") {
    return arg.logger == logger && arg.level == level && arg.text == text;
}

// A line of the logger that the engine and its trace write to.
inline auto EngineLine(int level, const std::string& text) {
    return IsLine("HttpClient", level, text);
}

}  // namespace kel::http::test
