// SPDX-License-Identifier: MIT
#ifndef KO_THREAD_EXECUTOR_H
#define KO_THREAD_EXECUTOR_H

#include <functional>
#include <vector>

#include "ko/condition.h"
#include "ko/executor.h"
#include "ko/mutex.h"
#include "ko/thread.h"
#include "ko/thread_annotations.h"

namespace ko {

// An executor that owns the thread on which its tasks run. For programs without an event loop of their own.
//
// post() takes one short lock and wakes the thread only if it sleeps. Tags are ignored.
class thread_executor final : public executor {
 public:
    // Starts the thread and gives it this name (the system keeps 15 characters; the text is copied).
    explicit thread_executor(const char* name);
    // Runs every task posted so far, then ends the thread. What is posted from now on, also by those last tasks, is
    // dropped: destroyed without having run.
    //
    // Threads: any but its own. Once another thread has seen the effect of a task, it may destroy the executor even
    //          though the post() of that task has not returned yet.
    ~thread_executor() override;
    thread_executor(const thread_executor&) = delete;
    thread_executor& operator=(const thread_executor&) = delete;

    // Takes no memory for the first 64 tasks that wait.
    void post(std::function<void()> task, int tag) override;

    // Of the thread on which the tasks run. Any thread.
    thread_id get_id() const noexcept { return thread_.get_id(); }

 private:
    using batch = std::vector<std::function<void()>>;

    void run(batch& tasks);
    bool wait_for_tasks(batch& tasks) KO_EXCLUDES(mutex_);

    ko::mutex mutex_{"ExecutorMutex"};
    condition wake_up_;
    batch queue_ KO_GUARDED_BY(mutex_);
    bool sleeping_ KO_GUARDED_BY(mutex_) = false;
    bool stopping_ KO_GUARDED_BY(mutex_) = false;
    thread thread_;
};

}  // namespace ko

#endif  // KO_THREAD_EXECUTOR_H
