// SPDX-License-Identifier: MIT
#include "SilentListener.h"

#include <poll.h>

#include "Deadline.h"
#include "Sockets.h"

namespace kel::http::test {

SilentListener::SilentListener(Connects connects)
    // A queue of 0 holds one connection.
    : listener_(listenOnLoopback(Family::IPv4, connects == Connects::Hang ? 0 : 128)), port_(portOf(listener_)) {
    if (connects == Connects::Succeed) return;
    filler_ = connectToLoopback(port_);
    pollfd queued{listener_.get(), POLLIN, 0};
    if (poll(&queued, 1, static_cast<int>(std::chrono::milliseconds(Deadline).count())) != 1) {
        throw DeadlineMissed("a full queue");
    }
}

std::string SilentListener::url(const std::string& path) const {
    return "http://" + loopbackAuthority(port_) + path;
}

}  // namespace kel::http::test
