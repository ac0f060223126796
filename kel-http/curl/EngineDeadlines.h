// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <tl/optional.hpp>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/EngineCompletion.h"
#include "kel-http/curl/EngineTransfers.h"

namespace kel::http {

// Ends transfers at their time-outs. libcurl has a timer for each (`CURLOPT_TIMEOUT_MS`), but sets it anew at each
// redirect and whenever it repeats a request, and looks at the time only when something wakes it.
//
// Costs nothing as long as no transfer has a time-out, and little otherwise: what is kept is one point in time, that
// of the earliest deadline or earlier. Transfers are looked at when it has come.
//
// Engine thread.
class EngineDeadlines {
 public:
    using Clock = std::chrono::steady_clock;

    EngineDeadlines(EngineTransfers& of_transfers, EngineCompletion& of_completion);

    // The time-out of this transfer, if it has one, runs from now on; each attempt through a proxy has its own.
    void begin(Engine::ActiveTask& task);

    // When the engine has to be awake next; empty when no deadline makes it.
    tl::optional<Clock::time_point> next();

    // Ends those whose time has come, for libcurl has not. Completed transfers have to be taken before.
    void endOverdue();

    // The deadline of a transfer that begins at `start`; the latest time there is for one that would come later.
    static Clock::time_point deadline(Clock::time_point start, std::chrono::milliseconds timeout);

 private:
    TaskPtr findOverdue(Clock::time_point now);

    EngineTransfers& transfers;
    EngineCompletion& completion;
    // No deadline is earlier. A transfer that ends leaves it as it is.
    Clock::time_point earliest = Clock::time_point::max();
};

}  // namespace kel::http
