// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kel::http {

// How far a download has come.
struct ProgressData {
    // The request's id, as the Client gave it.
    std::uint32_t request_id;

    // The peer, "address:port"; empty while it is not known.
    std::string remote_address;

    // The size of the body in bytes; 0: not known. Counts beyond 4 GiB wrap around.
    std::uint32_t total;

    // Bytes received so far. While a resumed download runs, `total` and `received` include what was there before; its
    // last report, when both are equal, counts the new bytes only.
    std::uint32_t received;
};

}  // namespace kel::http
