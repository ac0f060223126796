// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

#include "checksum/Digest.h"

namespace kel::http {

// What holds for all requests of one client.
struct ClientOptions {
    // Makes the checksum of a download; called once for each, on the client's thread. The checksum is fed on the engine
    // thread while the file is written, and the caller finds it in ResponseData::body, in lower-case hexadecimal, once
    // the file has its name. With RequestConfig::resume nobody gets it, as what was there before does not pass
    // through here. Empty (the default), or a result of null: no checksum. See checksum::sha256().
    // Errors: neither the factory nor the checksum may throw.
    std::function<std::unique_ptr<checksum::Digest>()> download_digest;
};

}  // namespace kel::http
