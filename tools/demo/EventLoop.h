// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"

namespace kel::http::demo {

// The engine, and the one thread on which clients are used and called back: the one that makes and runs this object.
class EventLoop {
 public:
    EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    ko::executor& executor() { return executor_; }

    // Runs callbacks until `done`.
    //
    // Errors: std::runtime_error, with what was waited for, when that is long overdue.
    void run_until(const std::function<bool()>& done, const std::string& what);

    // Calls `task` once everything has arrived that was on its way: it goes through the engine's queue, and back through
    // the executor's.
    void after_engine(std::function<void()> task);

 private:
    // The engine's thread posts to the executor until it has ended, so the executor goes last.
    ko::loop_executor executor_;
    Engine engine_;
};

}  // namespace kel::http::demo
