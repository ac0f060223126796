// SPDX-License-Identifier: MIT
#ifndef KO_EXECUTOR_H
#define KO_EXECUTOR_H

#include <functional>

namespace ko {

// Runs tasks, one after the other, on one thread. The interface through which results reach their user.
//
// Whoever implements it promises:
//   - post() may be called by any thread, also by a running task, and returns without running anything. A task that
//     ran inside post() would meet its user on a foreign thread, or within a call of his own.
//   - Tasks run in the order in which they were posted, all on the same thread, never two at a time.
//   - A task is destroyed right after it ran. What it holds is released on the executor's thread.
class executor {
 public:
    virtual ~executor();

    // Queues `task`, to be run once.
    //
    // `tag` says what kind of task it is, for statistics or priorities; an implementation may ignore it.
    // Ownership: the task is moved in. It may be destroyed without having run when the executor ends first.
    // Errors:    std::bad_alloc, with nothing queued and the task destroyed; the library posts an outcome again then, every
    //            10 ms on the same thread, and leaves progress out. Anything else that is thrown stops the process. An
    //            empty task does so when its turn comes, and so does an exception leaving a task.
    virtual void post(std::function<void()> task, int tag) = 0;

 protected:
    // For derived classes only.
    executor() = default;
    executor(const executor&) = default;
    executor& operator=(const executor&) = default;
};

}  // namespace ko

#endif  // KO_EXECUTOR_H
