// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "Executor.h"

namespace kel::http::test {

// An older program's task queue. Any thread posts; the test runs the tasks itself, one at a time.
class TaskQueue : public Executor {
 public:
    struct Task {
        std::function<void()> run;
        int reserved = -1;
        std::string name;
    };

    void post(std::function<void()> task, int reserved, const std::string& name) override;

    // The next task, when there is one.
    Task take();
    // Runs the next task, and returns its name.
    std::string runNext();
    std::size_t size() const;

 private:
    mutable std::mutex mutex_;
    std::condition_variable filled_;
    std::deque<Task> tasks_;
};

}  // namespace kel::http::test
