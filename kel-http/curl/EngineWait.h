// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>
#include <sys/time.h>

#include <chrono>
#include <tl/optional.hpp>

#include "logging/Logger.h"

namespace kel::http {

// Where the engine sleeps: until a socket is ready, until libcurl's next timer, or until somebody wakes it up.
// Engine thread, save for wakeUp().
class EngineWait {
 public:
    // Opens the descriptor that wakes the engine up; canWakeUp() is false when there is none.
    explicit EngineWait(logging::Logger& log);
    ~EngineWait();
    EngineWait(const EngineWait&) = delete;
    EngineWait& operator=(const EngineWait&) = delete;

    bool canWakeUp() const { return wakeupDescriptor >= 0; }

    // Ends the present wait or else the next one. Any thread.
    void wakeUp() const;

    // Waits on behalf of the transfers of `multi`, until `deadline` at most.
    void wait(CURLM* multi, tl::optional<std::chrono::steady_clock::time_point> deadline = tl::nullopt);

    // For whoever waits by other means: how long that may take, what becomes readable with a wake-up, and that it has been
    // heard.
    static timeval timeUntil(CURLM* multi, tl::optional<std::chrono::steady_clock::time_point> deadline);
    int descriptor() const { return wakeupDescriptor; }
    void drainWakeups() const;

    // Is told of every socket that libcurl opens.
    void watch(curl_socket_t descriptor);

 private:
    bool canSelect() const;
    bool waitWithSelect(CURLM* multi, timeval timeout) const;
    bool waitWithPoll(CURLM* multi, const timeval& timeout) const;

    const int wakeupDescriptor;
    // Set for good once libcurl has opened a descriptor that select(2) can not take.
    bool beyondSelect = false;
    logging::Logger* const logger;
};

}  // namespace kel::http
