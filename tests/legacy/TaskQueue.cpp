// SPDX-License-Identifier: MIT
#include "legacy/TaskQueue.h"

#include <utility>

#include "support/Deadline.h"

namespace kel::http::test {

void TaskQueue::post(std::function<void()> task, int reserved, const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back({std::move(task), reserved, name});
    filled_.notify_all();
}

TaskQueue::Task TaskQueue::take() {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitUntil(filled_, lock, "a posted task", [this] { return !tasks_.empty(); });
    Task first = std::move(tasks_.front());
    tasks_.pop_front();
    return first;
}

std::string TaskQueue::runNext() {
    const Task next = take();
    next.run();
    return next.name;
}

std::size_t TaskQueue::size() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return tasks_.size();
}

}  // namespace kel::http::test
