// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>

namespace kel::http::tool {

// Turns SIGINT (Ctrl-C) and SIGTERM into a descriptor that becomes readable, for as long as this object lives.
//
// Threads: made before any other thread, so that none of them takes the signals.
class StopSignals {
 public:
    // Errors: std::system_error.
    StopSignals();
    // Signals have their usual effect again: a second Ctrl-C ends the process at once.
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    int descriptor() const { return descriptor_; }

    // Takes the signal that made the descriptor readable.
    void consume() const;

 private:
    sigset_t previous_mask_{};
    int descriptor_;
};

}  // namespace kel::http::tool
