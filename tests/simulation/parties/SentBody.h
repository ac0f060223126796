// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Script.h"

namespace kel::http::simulation {

// Whether this is the whole body of a request, or its whole form.
bool isSentBody(const RequestScript& request, const std::string& head, const std::string& body);

}  // namespace kel::http::simulation
