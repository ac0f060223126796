// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kel::http {

// When the steps of a transfer were reached, counted from its start; libcurl's `CURLINFO_*_TIME_T` figures.
//
// Beware of the units: `namelookup` is in milliseconds, the other six are in microseconds.
struct TimingData {
    // The name was resolved; milliseconds.
    std::int64_t namelookup;
    // The connection to the server or its proxy stood; microseconds.
    std::int64_t connect;
    // The TLS handshake was done (0 without TLS); microseconds.
    std::int64_t appconnect;
    // The transfer was about to begin; microseconds.
    std::int64_t pretransfer;
    // The first byte arrived; microseconds.
    std::int64_t starttransfer;
    // The transfer ended; microseconds.
    std::int64_t total;
    // Spent on all redirects before the last request began; microseconds.
    std::int64_t redirect;
};

}  // namespace kel::http
