// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <tl/optional.hpp>

#include "kel-http/curl/EngineTransfers.h"
#include "kel-http/curl/EngineWait.h"
#include "kel-http/curl/SocketEvents.h"

namespace kel::http {

// Waits for something to happen to the transfers, and has libcurl deal with it. While they are few it looks at all of them
// each time, which takes least; while they are many, at those to which something has happened.
//
// A program that has replaced engine_curl_multi_perform() is called each time, however many there are.
//
// Engine thread.
class EngineDriving {
 public:
    // All outlive it.
    EngineDriving(EngineWait& of_engine, SocketEvents& of_sockets, EngineTransfers& of_transfers);

    // Once, until `deadline` at most; when it is over libcurl has looked at all of them.
    void drive(tl::optional<std::chrono::steady_clock::time_point> deadline);

 private:
    bool beginEvents();
    void driveAll(tl::optional<std::chrono::steady_clock::time_point> deadline);
    void driveByEvents(tl::optional<std::chrono::steady_clock::time_point> deadline);

    EngineWait& waiting;
    SocketEvents& events;
    EngineTransfers& transfers;
    const bool mayUseEvents;
    bool byEvents = false;
};

}  // namespace kel::http
