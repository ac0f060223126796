// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Options.h"
#include "Transfer.h"

namespace kel::http::tool {

// The outcome as one JSON object in one line, with a line feed. An error gets the advice, if there is any.
std::string json_report(const Options& options, const Outcome& outcome, const std::string& advice = {});

// When each step was done, in microseconds, under the names that all reports use.
nlohmann::ordered_json timing_of(const TimingData& timing);

}  // namespace kel::http::tool
