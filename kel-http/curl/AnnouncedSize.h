// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kel-http/curl/Request.h"

namespace kel::http {

// How many bytes the body has that is being received, as far as the server has said so; 0 when it has not, and outside of
// notifyDataReceived(). What the server says may be wrong, and of an encoded body it is not what the hook gets.
// Engine thread.
std::uint64_t announcedBytes(const Request& request);

}  // namespace kel::http
