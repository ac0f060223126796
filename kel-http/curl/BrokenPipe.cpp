// SPDX-License-Identifier: MIT
#include "kel-http/curl/BrokenPipe.h"

#include <pthread.h>

#include <ctime>

namespace kel::http {
namespace {

sigset_t brokenPipe() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    return signals;
}

bool isPending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

void blockBrokenPipeSignal() {
    const sigset_t signals = brokenPipe();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

BrokenPipeGuard::BrokenPipeGuard() : wasPending(isPending()) {
    const sigset_t signals = brokenPipe();
    pthread_sigmask(SIG_BLOCK, &signals, &before);
}

// A signal that was waiting before is another one's affair.
BrokenPipeGuard::~BrokenPipeGuard() {
    const sigset_t signals = brokenPipe();
    const timespec at_once{};
    if (!wasPending && isPending()) sigtimedwait(&signals, nullptr, &at_once);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace kel::http
