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

    // The size of the body in bytes, 0 when it is not known. Counts beyond 4 GiB wrap around.
    //
    // Of a resumed download both counts include what was there before, so that `total` is less than `received` when the
    // size is not known. Reports of a complete body, with `received` equal to `total`, count the new bytes only.
    std::uint32_t total;

    // Bytes received so far.
    std::uint32_t received;
};

}  // namespace kel::http
