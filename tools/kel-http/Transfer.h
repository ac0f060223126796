// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "Options.h"
#include "kel-http/ErrorData.h"
#include "kel-http/ResponseData.h"

namespace kel::http::tool {

struct Cancelled {};

using Outcome = std::variant<ResponseData, ErrorData, Cancelled>;

// Sends the request and waits for its outcome on this thread; the body goes to `file` if there is one. Ctrl-C cancels.
// The options tell which proxies the engine uses.
//
// On return no other thread is left.
Outcome transfer(const RequestConfig& request, const Options& options, const std::optional<std::string>& file);

}  // namespace kel::http::tool
