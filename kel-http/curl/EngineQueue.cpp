// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineQueue.h"

#include <exception>
#include <utility>

#include "kel-http/model/LogLine.h"

namespace kel::http {

EngineQueue::EngineQueue(const EngineWait& of_engine, logging::Logger& log)
    : waiting(of_engine), logger(&log), queueMutex("QueueMutex") {}

void EngineQueue::push(std::function<void()>&& task) {
    {
        ko::lock_guard lock(queueMutex);
        taskQueue.push_back(std::move(task));
    }
    waiting.wakeUp();
}

void EngineQueue::runTasks() {
    {
        ko::lock_guard lock(queueMutex);
        runningTasks.swap(taskQueue);
    }
    // Each task goes as soon as it has run: what it holds must not wait for the rest.
    for (; !runningTasks.empty(); runningTasks.pop_front()) runGuarded(runningTasks.front());
}

// A throwing task fails alone.
void EngineQueue::runGuarded(const std::function<void()>& task) const {
    try {
        task();
    } catch (const std::exception& error) {
        writeLine(*logger, log_level::error, "Engine::{}: A queued task failed: {}", "processPendingRequests",
                  error.what());
    } catch (...) {
        writeLine(*logger, log_level::error, "Engine::{}: A queued task failed", "processPendingRequests");
    }
}

}  // namespace kel::http
