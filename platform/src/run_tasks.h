// SPDX-License-Identifier: MIT
#ifndef KO_RUN_TASKS_H
#define KO_RUN_TASKS_H

#include <functional>
#include <vector>

namespace ko {

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
