// SPDX-License-Identifier: MIT
#include "ko/thread_executor.h"

#include <memory>
#include <utility>

#include "run_tasks.h"

namespace ko {

// The two queues change places for as long as the executor lives. Both are made here: the thread could tell nobody that it
// has found no memory.
thread_executor::thread_executor(const char* name) : queue_(make_queue()) {
    thread_id id = invalid_thread_id;
    const auto tasks = std::make_shared<batch>(make_queue());
    thread_ = thread::create_thread(name, {}, id, [this, tasks] { run(*tasks); });
}

thread_executor::~thread_executor() {
    {
        lock_guard lock(mutex_);
        stopping_ = true;
        wake_up_.notify_one();
    }
    thread_.join();
}

void thread_executor::post(std::function<void()> task, int /*tag*/) {
    lock_guard lock(mutex_);
    if (stopping_) return;
    queue_.push_back(std::move(task));
    // Within the lock: when the task has run, another thread may destroy the executor while this one is still here.
    if (std::exchange(sleeping_, false)) wake_up_.notify_one();
}

void thread_executor::run(batch& tasks) {
    while (wait_for_tasks(tasks)) run_tasks(tasks);
}

// Takes what is queued, the whole queue at once. False when the executor is stopping and nothing is left.
bool thread_executor::wait_for_tasks(batch& tasks) {
    lock_guard lock(mutex_);
    while (queue_.empty() && !stopping_) {
        sleeping_ = true;
        wake_up_.wait(mutex_);
    }
    sleeping_ = false;
    tasks.swap(queue_);
    return !tasks.empty();
}

}  // namespace ko
