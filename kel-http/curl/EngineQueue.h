// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "kel-http/curl/EngineWait.h"
#include "kel-http/curl/QueuedTask.h"
#include "ko/mutex.h"
#include "logging/Logger.h"

namespace kel::http {

// The tasks that wait for the engine thread, which each of them wakes up.
class EngineQueue {
 public:
    EngineQueue(const EngineWait& of_engine, logging::Logger& log);
    EngineQueue(const EngineQueue&) = delete;
    EngineQueue& operator=(const EngineQueue&) = delete;

    // Any thread. Throws std::bad_alloc, and leaves `task` as it is then.
    void push(QueuedTask&& task);

    // Runs the tasks that are there; one that is queued meanwhile waits for the next call. What a task throws is logged.
    // Engine thread.
    void runTasks();

 private:
    void runGuarded(QueuedTask& task) const;

    const EngineWait& waiting;
    logging::Logger* const logger;
    ko::mutex queueMutex;
    std::vector<QueuedTask> taskQueue KO_GUARDED_BY(queueMutex);
    // Engine thread; a member so that its memory serves every pass of the loop, as long as it is little.
    std::vector<QueuedTask> runningTasks;
};

}  // namespace kel::http
