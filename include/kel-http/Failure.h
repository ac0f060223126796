// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http {

// Why the engine could not complete a request. It always travels with a text. What a Client's caller sees of it is
// ClientFailure. The numbers are part of the interface.
enum class Failure : std::uint32_t {
    // The URL can not be used: malformed, neither http nor https, or what answered does not speak HTTP (libcurl codes 1
    // and 3).
    InvalidUrl = 0,
    // The name of the server or of its proxy could not be resolved (5 and 6).
    ResolveFailed = 1,
    // Any other error of libcurl's, TLS errors included; an answer whose status is none; a request that could not be
    // set up.
    Other = 2,
    // The request's time-out ran out (28).
    Timeout = 3,
    // Status 401, 403 or 407.
    AuthFailure = 4,
    // No connection (7).
    ConnectFailed = 5,
    // Any other status from 400 to 599.
    HttpError = 6,
    // The body could not be stored: disk full, no memory, or larger than the request's limit (23).
    WriteFailed = 7,
    // The server can not go on where a partial download ends (33).
    RangeError = 8
};

}  // namespace kel::http
