// SPDX-License-Identifier: MIT
#ifndef KO_RUN_TASKS_H
#define KO_RUN_TASKS_H

#include <cstddef>
#include <functional>
#include <vector>

namespace ko {

// A queue with room for as many tasks as wait in ordinary use: posting these can not fail.
inline std::vector<std::function<void()>> make_queue() {
    constexpr std::size_t usual_tasks = 64;
    std::vector<std::function<void()>> queue;
    queue.reserve(usual_tasks);
    return queue;
}

// Runs the tasks in order, destroying each before the next one begins, and leaves `tasks` empty with its memory kept.
// An exception leaving a task ends the process: nobody is there who could tell what it broke.
inline void run_tasks(std::vector<std::function<void()>>& tasks) noexcept {
    for (auto& task : tasks) {
        task();
        task = nullptr;
    }
    tasks.clear();
}

}  // namespace ko

#endif  // KO_RUN_TASKS_H
