// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "ko/condition.h"
#include "ko/mutex.h"

namespace kel::http {

// Lets other threads wait until the engine thread has done all that they and others have queued before.
class EngineSettling {
 public:
    // Any thread but the engine's. take() announces the wait, before the engine is woken up; await() returns when the engine
    // has come so far, or when its loop has ended.
    std::uint32_t take() { return ++asked; }
    void await(std::uint32_t ticket);

    // Engine thread: the tickets taken so far, read before the queue is emptied, and told when all of that has run.
    std::uint32_t tickets() const { return asked; }
    void reach(std::uint32_t ticket);
    // Nothing will run any more.
    void end();

 private:
    // One thread that waits, on its stack: waiting needs no memory.
    struct Waiter {
        const std::uint32_t ticket;
        Waiter* next;
        bool released = false;
        ko::condition changed{};
    };

    bool isDue(std::uint32_t ticket) const KO_REQUIRES(mutex);
    void releaseAllDue() KO_REQUIRES(mutex);

    std::atomic<std::uint32_t> asked{0};
    // Engine thread.
    std::uint32_t told = 0;
    ko::mutex mutex{"SettlingMutex"};
    std::uint32_t reached KO_GUARDED_BY(mutex) = 0;
    bool ended KO_GUARDED_BY(mutex) = false;
    Waiter* waiters KO_GUARDED_BY(mutex) = nullptr;
};

}  // namespace kel::http
