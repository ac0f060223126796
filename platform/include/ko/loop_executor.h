// SPDX-License-Identifier: MIT
#ifndef KO_LOOP_EXECUTOR_H
#define KO_LOOP_EXECUTOR_H

#include <cstddef>
#include <functional>
#include <vector>

#include "ko/executor.h"
#include "ko/mutex.h"
#include "ko/thread_annotations.h"

namespace ko {

// An executor for programs that have an event loop: watch descriptor() for reading and call drain() when it is ready.
//
// The thread that calls drain() is the executor's thread. Tags are ignored.
class loop_executor final : public executor {
 public:
    // Stops the process when the system has no descriptor left.
    loop_executor();
    // Destroys tasks that have not run. The thread that drains; nobody may be waiting on the descriptor any more.
    ~loop_executor() override;
    loop_executor(const loop_executor&) = delete;
    loop_executor& operator=(const loop_executor&) = delete;

    // Takes no memory for the first 64 tasks that wait.
    void post(std::function<void()> task, int tag) override;

    // Readable (for select, poll, epoll) as long as tasks wait. Owned by this object: do not read, write or close it.
    int descriptor() const noexcept { return descriptor_; }

    // Runs the tasks that were queued when it was called and returns how many that were; 0 at once if there were none.
    //
    // What these tasks post waits for the next drain(), and leaves the descriptor readable: a task that posts itself
    // again cannot hold up the loop.
    std::size_t drain() KO_EXCLUDES(mutex_);

 private:
    using batch = std::vector<std::function<void()>>;

    void take_into(batch& tasks) KO_EXCLUDES(mutex_);

    ko::mutex mutex_{"ExecutorMutex"};
    batch queue_ KO_GUARDED_BY(mutex_);
    batch spare_;  // the draining thread's; keeps its memory from one drain to the next
    const int descriptor_;
};

}  // namespace ko

#endif  // KO_LOOP_EXECUTOR_H
