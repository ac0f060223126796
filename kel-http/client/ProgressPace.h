// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

namespace kel::http {

// Which of libcurl's many progress calls become a report: those of a complete body always, of the others about one a
// second.
class ProgressPace {
 public:
    enum class Report { none, periodic, completion };
    using Clock = std::chrono::steady_clock::time_point (*)();

    explicit ProgressPace(Clock clock_to_read = &std::chrono::steady_clock::now) : clock(clock_to_read) {}

    // What to do about one call. `total` is 0 while the size is not known. libcurl calls very often, mostly with the
    // same count, so the clock is read only when there is something to tell.
    Report next(std::uint32_t total, std::uint32_t received) {
        const bool complete = received == total && total != 0;
        return complete || received != last_received ? timed(complete, received) : Report::none;
    }

 private:
    Report timed(bool complete, std::uint32_t received);

    const Clock clock;
    std::chrono::steady_clock::time_point last_time{};
    std::uint32_t last_received = 0;
};

}  // namespace kel::http
