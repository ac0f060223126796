// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <tl/optional.hpp>

#include "kel-http/curl/DeviceCertificate.h"
#include "kel-http/curl/Request.h"
#include "kel-http/curl/SessionRefusals.h"
#include "kel-http/curl/TrustFiles.h"
#include "logging/Logger.h"

namespace kel::http {

// What a transfer says to libcurl about TLS: versions, trust, the client's certificate, and whether connections and TLS
// sessions may be shared. What libcurl has no option for is set in `Tls.h`, when the handshake begins.
//
// Who takes over a connection, or resumes a session, is served under the trust and as the client of whoever made it: the
// server asks for no certificate again, nor is its own verified. So both serve those alone that would have made the same
// ones. libcurl compares the names of files; `TrustFiles` and `DeviceCertificate` see to it that a name stands for what was
// there when it was given.
//
// Engine thread.
class EngineTls {
 public:
    using Clock = std::chrono::steady_clock::time_point (*)();

    explicit EngineTls(logging::Logger& log, Clock of_handshakes = &std::chrono::steady_clock::now)
        : clock(of_handshakes), begun(of_handshakes()), logger(&log) {}

    // The options of a transfer, which borrows the request's configuration. Throws when a verifier can not be installed, when
    // libcurl refuses what trust or identity depends on, and what `TlsFiles.h` throws.
    void addTlsConfig(CURL* easy, Request& request);

    // Keeps a transfer from resuming TLS sessions, and from leaving any for others.
    static void leaveSessionsAlone(CURL* easy);

    // Hears how each transfer has ended, before its error text goes. True when a handshake has failed that may do without a
    // session, which the next one for this URL does not resume.
    bool noteResult(CURLcode result, const Request& request);

 private:
    static CURLcode presentDevice(CURL* easy, void* context, void* config) noexcept;

    // Names and sessions end after a day.
    void endOldSessions();
    void addIdentity(CURL* easy, Request& request);
    void addDevice(CURL* easy, Request& request);
    void addVerification(CURL* easy, const RequestConfig& config);
    static void setAuthorities(CURL* easy, CURLoption option, const std::string& name);
    void setCaFile(CURL* easy, const tl::optional<std::string>& file);
    void setCaFolder(CURL* easy, const tl::optional<std::string>& folder);
    void tellDeviceApart(CURL* easy) const;
    void addCertificateCache(CURL* easy) const;
    void notePresented(CURL* easy, const Request& request, const tls::CertificateDer& certificate);

    TrustFiles trustFiles;
    DeviceCertificate device;
    SessionRefusals refusals;
    const Clock clock;
    // When the names of today were given.
    std::chrono::steady_clock::time_point begun;
    // When a handshake failed last; never, to begin with.
    tl::optional<std::chrono::steady_clock::time_point> lastFailure;
    logging::Logger* const logger;
};

}  // namespace kel::http
