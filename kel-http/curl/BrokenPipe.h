// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>

namespace kel::http {

// Keeps SIGPIPE away from the present thread: a peer that goes away must end its own transfer, not the process, whatever
// path of libcurl or OpenSSL wrote to it. libcurl itself is told to leave signals alone.
void blockBrokenPipeSignal();

// The same for as long as it lives, on a thread that is not ours. What has been raised meanwhile is not heard afterwards.
class BrokenPipeGuard {
 public:
    BrokenPipeGuard();
    ~BrokenPipeGuard();
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
    sigset_t before;
    bool wasPending;
};

}  // namespace kel::http
