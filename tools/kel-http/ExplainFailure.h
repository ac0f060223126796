// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Options.h"
#include "TlsAdvice.h"
#include "kel-http/ErrorData.h"

namespace kel::http::tool {

// What can be done about a failed transfer, for a person. Empty when nothing is known.
std::string advice(const ErrorData& error, const ConnectionTrouble& trouble, const Options& options);

// What failed, on what, and the advice.
std::string explain(const ErrorData& error, const std::string& advice, const Options& options);

}  // namespace kel::http::tool
