// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Options.h"
#include "kel-http/ErrorData.h"

namespace kel::http::tool {

// A failed transfer in words for a person: what failed, on what, and what to do about it.
std::string explain(const ErrorData& error, const Options& options);

}  // namespace kel::http::tool
