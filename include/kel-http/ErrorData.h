// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kel-http/ClientFailure.h"

namespace kel::http {

// Why there is no response.
struct ErrorData {
    // The kind of failure, for programs.
    ClientFailure failure;

    // For people; libcurl's own words where there are any. May be empty.
    std::string message;
};

}  // namespace kel::http
