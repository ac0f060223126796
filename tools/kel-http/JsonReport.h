// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Options.h"
#include "Transfer.h"

namespace kel::http::tool {

// The outcome as one JSON object in one line, with a line feed. An error gets the advice, if there is any.
std::string json_report(const Options& options, const Outcome& outcome, const std::string& advice = {});

}  // namespace kel::http::tool
