// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineQueue.h"

#include <exception>
#include <utility>

#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

// Of the room for tasks, after many have come at once.
constexpr std::size_t most_kept = 16;

}  // namespace

EngineQueue::EngineQueue(const EngineWait& of_engine, logging::Logger& log)
    : waiting(of_engine), logger(&log), queueMutex("QueueMutex") {}

void EngineQueue::push(QueuedTask&& task) {
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
    for (QueuedTask& task : runningTasks) {
        // It goes as soon as it has run: what it holds must not wait for the rest.
        QueuedTask running(std::move(task));
        runGuarded(running);
    }
    runningTasks.clear();
    if (runningTasks.capacity() > most_kept) runningTasks.shrink_to_fit();
}

// A throwing task fails alone.
void EngineQueue::runGuarded(QueuedTask& task) const {
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
