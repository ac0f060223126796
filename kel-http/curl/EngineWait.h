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

    // Is told of every socket that libcurl opens.
    void watch(curl_socket_t descriptor);

    // Closes one for libcurl (`CURLOPT_CLOSESOCKETFUNCTION`, with the EngineWait as its data); the next wait ends at once. Where
    // an address has refused the connection, libcurl 7.88 goes on with the next one only when it is called again, and asks for
    // that much later: after 200 ms, or after half of the time that is left.
    static int closeSocket(void* waiting, curl_socket_t descriptor);

 private:
    bool canSelect() const;
    bool waitWithSelect(CURLM* multi, timeval timeout) const;
    bool waitWithPoll(CURLM* multi, const timeval& timeout) const;
    void drainWakeups() const;

    const int wakeupDescriptor;
    // Set for good once libcurl has opened a descriptor that select(2) can not take.
    bool beyondSelect = false;
    // libcurl may have more to do than it says.
    bool looksAgain = false;
    logging::Logger* const logger;
};

}  // namespace kel::http
