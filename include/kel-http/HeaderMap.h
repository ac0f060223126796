// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <unordered_map>

#include "ko/containers.h"

namespace kel::http {

// HTTP header fields by name (RFC 9110, section 5). Names are compared and hashed without regard to letter case and
// kept as they were written; values are kept as they are. One entry a name: of a repeated header only the first one is
// held.
using HeaderMap = std::unordered_map<std::string, std::string, ko::containers::lc_hash, ko::containers::lc_equals>;

}  // namespace kel::http
