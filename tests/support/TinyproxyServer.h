// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "FileDescriptor.h"
#include "ProxyUser.h"
#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace kel::http::test {

// A real tinyproxy on the loopback interface, for CONNECT to any port: open, or for one user by basic authentication,
// whose name and password are made of letters, digits, ".", "-" and "_".
//
// Life:    serves from the constructor on until stop() or the destructor. It also dies with the thread that made it.
// Threads: the constructor's, for everything.
// Errors:  the constructor throws std::runtime_error, with tinyproxy's own words, when it does not start.
class TinyproxyServer {
 public:
    TinyproxyServer() : TinyproxyServer(std::nullopt) {}
    explicit TinyproxyServer(const std::optional<ProxyUser>& user);

    std::uint16_t port() const { return port_; }
    // "http://127.0.0.1:4711"
    std::string url() const;

    // Stops serving at once: open tunnels break, new connections are refused. May be called again.
    void stop() { process_.stop(); }

    // All that it has printed.
    std::string log() const;

 private:
    TemporaryDirectory directory_;
    FileDescriptor reserved_;
    std::uint16_t port_;
    ServerProcess process_;
};

}  // namespace kel::http::test
