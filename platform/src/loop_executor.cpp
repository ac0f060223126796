// SPDX-License-Identifier: MIT
#include "ko/loop_executor.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include "ko/assert.h"
#include "run_tasks.h"

namespace ko {

loop_executor::loop_executor()
    : queue_(make_queue()), spare_(make_queue()), descriptor_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    KO_ASSERT(descriptor_ >= 0);
}

loop_executor::~loop_executor() {
    close(descriptor_);
}

void loop_executor::post(std::function<void()> task, int /*tag*/) {
    lock_guard lock(mutex_);
    queue_.push_back(std::move(task));
    // Only the first task has to make the descriptor readable. Within the lock: once the task can be taken, the
    // executor may be gone at any moment, and its descriptor with it.
    if (queue_.size() == 1) eventfd_write(descriptor_, 1);
}

std::size_t loop_executor::drain() {
    batch tasks = std::move(spare_);
    take_into(tasks);
    const std::size_t count = tasks.size();
    run_tasks(tasks);
    spare_ = std::move(tasks);
    return count;
}

void loop_executor::take_into(batch& tasks) {
    lock_guard lock(mutex_);
    if (queue_.empty()) return;
    tasks.swap(queue_);
    eventfd_t count = 0;
    eventfd_read(descriptor_, &count);
}

}  // namespace ko
