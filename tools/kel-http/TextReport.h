// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kel-http/ResponseData.h"

namespace kel::http::tool {

// The status and the headers, sorted by name, and an empty line.
std::string head_of(const ResponseData& response);

// One line for each phase of the transfer, with a bar that shows its place in the whole.
std::string timing_bars(const TimingData& timing);

}  // namespace kel::http::tool
