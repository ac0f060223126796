// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <tl/optional.hpp>

#include "kel-http/curl/Request.h"
#include "kel-http/curl/TrustFiles.h"
#include "logging/Logger.h"

namespace kel::http {

// What a transfer says to libcurl about TLS: versions, trust, the client's certificate, and whether the connection may be
// shared. What libcurl has no option for is set in `Tls.h`, when the handshake begins. Engine thread.
class EngineTls {
 public:
    using Clock = std::chrono::steady_clock::time_point (*)();

    explicit EngineTls(logging::Logger& log, Clock of_handshakes = &std::chrono::steady_clock::now)
        : clock(of_handshakes), logger(&log) {}

    // The options of a transfer, which borrows the request's configuration. Throws when a verifier can not be installed, when
    // libcurl refuses what trust or identity depends on, and what `TlsFiles.h` throws.
    void addTlsConfig(CURL* easy, Request& request);

    // Hears how each transfer has ended.
    void noteResult(CURLcode result);

 private:
    void addCertificateCache(CURL* easy) const;

    TrustFiles trustFiles;
    const Clock clock;
    // When a handshake failed last; never, to begin with.
    tl::optional<std::chrono::steady_clock::time_point> lastFailure;
    logging::Logger* const logger;
};

}  // namespace kel::http
