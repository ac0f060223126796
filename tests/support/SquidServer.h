// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FileDescriptor.h"
#include "ProxyUser.h"
#include "ServerProcess.h"
#include "TemporaryDirectory.h"

namespace kel::http::test {

// A real squid on the loopback interface as a proxy for CONNECT to any port, with nothing cached.
//
// Life:    serves from the constructor on until stop() or the destructor. It also dies with the thread that made it.
// Threads: the constructor's, for everything.
// Errors:  the constructor throws std::runtime_error, with squid's own words, when squid does not start.
class SquidServer {
 public:
    enum class Access {
        Open,    // everybody
        Basic,   // the users, by basic authentication
        Digest,  // the users, by digest authentication
    };

    SquidServer() : SquidServer(Access::Open) {}
    // A user's name has no colon in it: neither of the two ways has room for one.
    explicit SquidServer(Access access, const std::vector<ProxyUser>& users = {});

    std::uint16_t port() const { return port_; }
    // "http://127.0.0.1:4711"
    std::string url() const;

    // Stops serving at once: open tunnels break, new connections are refused. May be called again.
    void stop() { process_.stop(); }

    // One line a CONNECT: "TARGET STATUS USER", where nobody is "-". It is written when the tunnel ends, or at once where
    // there is none. Waits for `count` lines under the one deadline and returns what is there then.
    std::vector<std::string> awaitAccessLog(std::size_t count) const;

 private:
    TemporaryDirectory directory_;
    FileDescriptor reserved_;
    std::uint16_t port_;
    ServerProcess process_;
};

}  // namespace kel::http::test
