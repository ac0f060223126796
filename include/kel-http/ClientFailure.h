// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http {

// Why a request ended without a response, as its caller is told. The numbers are part of the interface and are printed
// in the client's error line. The meanings are those of the same names in Failure; an HTTP error is no failure here but
// a response with its status.
enum class ClientFailure : std::uint32_t {
    // The URL can not be used: malformed, neither http nor https, or what answered does not speak HTTP.
    InvalidUrl = 0,
    // The name of the server or of its proxy could not be resolved.
    ResolveFailed = 1,
    // Anything else: TLS, a refused tunnel, a connection that broke, a request that could not be set up.
    Other = 2,
    // RequestConfig::timeout ran out, or libcurl's own limit for connecting.
    Timeout = 3,
    // Kept for its number; a 401, 403 or 407 arrives as a response.
    AuthFailure = 4,
    // No connection to the server or its proxy.
    ConnectFailed = 5,
    // The body could not be stored: disk full, no memory, or larger than RequestConfig::size_limit.
    WriteFailed = 6,
    // The server can not go on where a partial download ends.
    RangeError = 7
};

}  // namespace kel::http
