// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>

namespace kel::http::test {

// The one generous deadline of all waits in the tests. A test which needs it has failed.
constexpr std::chrono::seconds Deadline{30};

// Thrown by every wait of the support library whose event did not come in time; GoogleTest reports it as a failure.
class DeadlineMissed : public std::runtime_error {
 public:
    explicit DeadlineMissed(const std::string& awaited) : std::runtime_error("did not come in time: " + awaited) {}
};

// Waits on `changed` until `happened()` holds, which is asked with `lock` held.
//
// Errors: DeadlineMissed, naming `awaited`.
template <typename Predicate>
void awaitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, const std::string& awaited,
                Predicate happened) {
    if (!changed.wait_for(lock, Deadline, happened)) throw DeadlineMissed(awaited);
}

}  // namespace kel::http::test
