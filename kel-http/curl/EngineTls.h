// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include "kel-http/curl/Request.h"
#include "logging/Logger.h"

namespace kel::http {

// What a transfer says to libcurl about TLS: versions, trust, the client's certificate, and whether the connection may be
// shared. What libcurl has no option for is set in `Tls.h`, when the handshake begins. Engine thread.
class EngineTls {
 public:
    explicit EngineTls(logging::Logger& log) : logger(&log) {}

    // The options of a transfer, which borrows the request's configuration. Throws when a verifier can not be installed, when
    // libcurl refuses what trust or identity depends on, and what `TlsFiles.h` throws.
    void addTlsConfig(CURL* easy, Request& request) const;

 private:
    logging::Logger* const logger;
};

}  // namespace kel::http
