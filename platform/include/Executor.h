// SPDX-License-Identifier: MIT
#ifndef EXECUTOR_H
#define EXECUTOR_H

#include <functional>
#include <string>

// The older interface of task runners, for callers that have one already. New code uses ko::executor.
//
// Whoever implements it promises that post() may be called by any thread, returns without running the task, and that
// tasks run one after the other in the order of posting.
class Executor {
 public:
    virtual ~Executor();

    // Queues `task`, to be run once. `reserved` is always 0. `name` says for diagnostics what the task is.
    // Errors: an implementation that cannot take the task may throw; the task is then not run.
    virtual void post(std::function<void()> task, int reserved, const std::string& name) = 0;

 protected:
    // For derived classes only.
    Executor() = default;
    Executor(const Executor&) = default;
    Executor& operator=(const Executor&) = default;
};

#endif  // EXECUTOR_H
