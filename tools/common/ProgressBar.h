// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace kel::http::tool {

// For people, three digits of it: "512 B", "9.87 MiB", "98.7 GiB". Eight characters at most.
std::string bytes_text(std::uint64_t bytes);

// For people: "0:07", "59:59", "12h05m", "3d". Six characters at most, in what is left of a download.
std::string duration_text(std::chrono::seconds duration);

// How far something has come, for a terminal or for a log. It does not print: whoever owns the screen asks for a line.
//
// Threads: one at a time.
class ProgressBar {
 public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Clock = std::function<TimePoint()>;

    // The time begins now.
    explicit ProgressBar(const std::string& name, Clock clock = &std::chrono::steady_clock::now);

    // What is there by now, in bytes, with what an earlier run has left. A total of 0: it is not known.
    void update(std::uint64_t received, std::uint64_t total);

    // "image.bin        45% [====>     ] 29.1 MiB/64.0 MiB 3.20 MiB/s   0:11 left", no wider than `width` columns. Where
    // there is less room the last parts are left out, the percentage last. Lines of the same width have their columns at
    // the same places.
    std::string line(std::size_t width) const;

    // The same as a text: "image.bin: 45% of 64.0 MiB, 3.20 MiB/s, 0:11 left".
    std::string text() const;

    // The end of it: "image.bin: 64.0 MiB in 0:20, 3.20 MiB/s". Counts as new what came after the first update().
    std::string summary() const;

    // Bytes per second over the last five seconds. Nothing before it can be told.
    std::optional<double> rate() const;

    // Until the total is there at this rate. Nothing when that can not be told, as while nothing comes.
    std::optional<std::chrono::seconds> time_left() const;

 private:
    struct Sample {
        TimePoint time;
        std::uint64_t received;
    };

    std::string percentage() const;
    std::string rate_text() const;
    std::string time_left_text() const;
    std::string bar(std::size_t width) const;

    const std::string name_;
    const Clock clock_;
    const TimePoint start_;
    std::uint64_t first_received_ = 0;
    std::uint64_t received_ = 0;
    std::uint64_t total_ = 0;
    std::deque<Sample> samples_;  // from the last one that is too old to count on
};

}  // namespace kel::http::tool
