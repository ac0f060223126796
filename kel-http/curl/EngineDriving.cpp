// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineDriving.h"

#include "kel-http/curl/Hooks.h"
#include "kel-http/curl/WaitTime.h"

// The library's own name for its own function; null where the program's have taken the place of all hooks.
CURLMcode own_curl_multi_perform(void* multi, int* running) __attribute__((weak, visibility("hidden")));

namespace kel::http {
namespace {

using Clock = std::chrono::steady_clock;

// Measured: a request beside so many others costs the same either way.
constexpr std::size_t many = 16;
constexpr std::size_t few = 8;

void performHook(CURLM* multi) {
    int running = 0;
    engine_curl_multi_perform(multi, &running);
}

}  // namespace

EngineDriving::EngineDriving(EngineWait& of_engine, SocketEvents& of_sockets, EngineTransfers& of_transfers)
    : waiting(of_engine),
      events(of_sockets),
      transfers(of_transfers),
      mayUseEvents(&engine_curl_multi_perform == &own_curl_multi_perform) {}

void EngineDriving::drive(tl::optional<Clock::time_point> deadline) {
    if (byEvents) byEvents = transfers.size() >= few && events.works();
    if (byEvents) return driveByEvents(deadline);
    if (!mayUseEvents || transfers.size() <= many || !beginEvents()) return driveAll(deadline);
    // Some may have ended with that: nobody waits before they are heard of.
    SocketEvents::sweep(transfers.multiHandle());
}

bool EngineDriving::beginEvents() {
    byEvents = events.begin(transfers.multiHandle(), waiting.descriptor());
    return byEvents;
}

void EngineDriving::driveAll(tl::optional<Clock::time_point> deadline) {
    if (events.hasLostOne()) deadline = Clock::time_point();
    waiting.wait(transfers.multiHandle(), deadline);
    performHook(transfers.multiHandle());
}

// libcurl tells of no socket's change when all transfers are looked at, so that it is asked for all of them.
void EngineDriving::driveByEvents(tl::optional<Clock::time_point> deadline) {
    CURLM* const multi = transfers.multiHandle();
    if (events.drive(multi, waitMilliseconds(EngineWait::timeUntil(multi, deadline)))) waiting.drainWakeups();
    const bool isOver = deadline && Clock::now() >= *deadline;
    if (isOver) performHook(multi);
    if (isOver || events.hasLostOne()) SocketEvents::sweep(multi);
}

}  // namespace kel::http
