// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <string>

namespace kel::http::bench {

// What the process spends from here to stop(). Under callgrind, instructions and calls are counted for as long, and not
// behind it; whether they are before the first Meter is --instr-atstart's to say.
class Meter {
 public:
    Meter();

    // Figures with names, for bench/run: user and system time and real time, in microseconds, and how often threads gave
    // up the processor to wait; and since the process began, the processor time in microseconds.
    std::string stop() const;

 private:
    rusage before_{};
    std::chrono::steady_clock::time_point begin_;
};

}  // namespace kel::http::bench
