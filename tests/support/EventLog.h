// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace kel::http::test {

// What happened, in order, as short texts: callbacks note events, the test waits for them and compares.
//
// Threads: any, for all functions. Notes made before the end of a wait are visible after it.
class EventLog {
 public:
    void add(std::string event);

    // Wait under the one deadline: until `event` has been noted `times` times, or until `count` events have been noted.
    //
    // Errors: DeadlineMissed, with all the events so far in its text.
    void await(const std::string& event, std::size_t times = 1) const;
    void awaitCount(std::size_t count) const;

    // Copies of the present state.
    std::vector<std::string> events() const;
    std::size_t count() const;
    std::size_t count(const std::string& event) const;

    void clear();

 private:
    template <typename Predicate>
    void awaitThat(const std::string& awaited, Predicate happened) const;
    std::size_t countLocked(const std::string& event) const;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> events_;
};

}  // namespace kel::http::test
