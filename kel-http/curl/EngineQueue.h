// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>

#include "kel-http/curl/EngineWait.h"
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
    void push(std::function<void()>&& task);

    // Runs the tasks that are there; one that is queued meanwhile waits for the next call. What a task throws is logged.
    // Engine thread.
    void runTasks();

 private:
    void runGuarded(const std::function<void()>& task) const;

    const EngineWait& waiting;
    logging::Logger* const logger;
    ko::mutex queueMutex;
    std::deque<std::function<void()>> taskQueue KO_GUARDED_BY(queueMutex);
    // Engine thread; a member so that its memory serves every pass of the loop.
    std::deque<std::function<void()>> runningTasks;
};

}  // namespace kel::http
