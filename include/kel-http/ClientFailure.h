// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http {

// Why a request ended without a response, as its caller is told. The numbers are part of the interface and are printed
// in the client's error line. The meanings are those of the same names in Failure; an HTTP error is no failure here but
// a response with its status.
enum class ClientFailure : std::uint32_t {
    InvalidUrl = 0,
    ResolveFailed = 1,
    Other = 2,
    Timeout = 3,
    // Kept for its number; a 401, 403 or 407 arrives as a response.
    AuthFailure = 4,
    ConnectFailed = 5,
    WriteFailed = 6,
    RangeError = 7
};

}  // namespace kel::http
