// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

#include "kel-http/ClientFailure.h"

namespace kel::http::tool {

// The enumerator's name: "Timeout". Lives as long as the program.
std::string_view failure_name(ClientFailure failure);

}  // namespace kel::http::tool
