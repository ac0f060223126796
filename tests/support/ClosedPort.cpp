// SPDX-License-Identifier: MIT
#include "ClosedPort.h"

#include "Sockets.h"

namespace kel::http::test {

ClosedPort::ClosedPort() : bound_(bindToLoopback()), port_(portOf(bound_)) {}

std::string ClosedPort::url(const std::string& path) const {
    return "http://" + loopbackAuthority(port_) + path;
}

}  // namespace kel::http::test
