// SPDX-License-Identifier: MIT
#include "StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace kel::http::tool {
namespace {

// A program that a shell has put into the background is not to hear of Ctrl-C.
bool is_ignored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM}) {
        if (!is_ignored(signal)) sigaddset(&signals, signal);
    }
    return signals;
}

}  // namespace

StopSignals::StopSignals() {
    const sigset_t signals = stop_signals();
    descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC);
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
    pthread_sigmask(SIG_BLOCK, &signals, &previous_mask_);
}

StopSignals::~StopSignals() {
    close(descriptor_);
    pthread_sigmask(SIG_SETMASK, &previous_mask_, nullptr);
}

void StopSignals::consume() const {
    signalfd_siginfo info{};
    while (read(descriptor_, &info, sizeof info) < 0 && errno == EINTR) continue;
}

}  // namespace kel::http::tool
