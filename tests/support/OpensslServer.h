// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace kel::http::test {

// OpenSSL's own test server on the loopback interface, for handshakes that nginx does not offer: one TLS version and no
// other, or an end to it when the client's certificate does not please.
//
// It serves one connection after the other, each for one GET, and answers with a page about the connection, which has
// "Protocol  : TLSv1.2" in it. Its certificate is that of TestCertificates::shared().
//
// Life:   serves from the constructor on until the destructor. It also dies with the thread that made it.
// Errors: the constructor throws std::runtime_error, with the server's own words, when it does not start.
class OpensslServer {
 public:
    // As s_server(1) takes them: "-tls1_2".
    explicit OpensslServer(const std::vector<std::string>& arguments);

    // "https://127.0.0.1:4711/"
    std::string url() const;
    // What it has printed so far.
    std::string log() const;

 private:
    std::string logFile() const { return directory_.path("log"); }

    TemporaryDirectory directory_;
    ServerProcess process_;
    std::uint16_t port_ = 0;
};

}  // namespace kel::http::test
