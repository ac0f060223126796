// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace kel::http::soak {

// What has become of all requests so far. Threads: any.
class Tally {
 public:
    // A request has been started; it has ended so, or it was cancelled.
    void noteStart();
    void noteEnd(const std::string& how);
    // A promise has been broken. The first ones are told on standard error at once.
    void noteFault(const std::string& what);

    // One line: "00:01:00  12345 requests (205/s): response 9000, cancelled 2000, ...; RSS 35.1 MiB, 61 descriptors"
    std::string line() const;
    std::size_t starts() const;
    std::size_t faults() const;
    // Of those whose end has this name.
    std::size_t ends(const std::string& how) const;

 private:
    using Clock = std::chrono::steady_clock;

    const Clock::time_point begin_ = Clock::now();
    mutable std::mutex mutex_;
    std::size_t starts_ = 0;
    std::size_t faults_ = 0;
    std::map<std::string, std::size_t> ends_;
};

}  // namespace kel::http::soak
