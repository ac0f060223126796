// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

#include "runs/Seeds.h"

namespace kel::http::simulation {

// "2000 seeds, 8123 requests, 5 h 12 min of virtual time, 61 states".
std::string summaryOf(const Tally& tally);

// Tells on standard error how far a run is: twice a second on a terminal, in place; else in a line every ten seconds.
class Progress {
 public:
    Progress();

    void tell(const Tally& tally);
    // Before other lines, and at the end.
    void clear() const;

 private:
    using Clock = std::chrono::steady_clock;

    const bool in_place_;
    Clock::time_point told_ = Clock::now();
};

}  // namespace kel::http::simulation
