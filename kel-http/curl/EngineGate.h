// SPDX-License-Identifier: MIT
#pragma once

#include "ko/condition.h"
#include "ko/mutex.h"

namespace kel::http {

// Keeps the engine in place for threads that ask something of it while its owner destroys it: a completion that runs on a
// thread of its own may do so at any time. Any thread.
class EngineGate {
 public:
    void open() {
        ko::lock_guard lock(mutex);
        isOpen = true;
    }

    // Lets nobody in any more, and waits for those who are inside; they only queue a task.
    void close() {
        ko::lock_guard lock(mutex);
        isOpen = false;
        while (inside > 0) emptied.wait(mutex);
    }

    // Keeps the engine in place for as long as it lives, if it came inside. Otherwise there is no engine.
    class Visit {
     public:
        explicit Visit(EngineGate& visited) : gate(visited), came_in(gate.enter()) {}
        ~Visit() {
            if (came_in) gate.leave();
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        bool isInside() const { return came_in; }

     private:
        EngineGate& gate;
        const bool came_in;
    };

 private:
    bool enter() {
        ko::lock_guard lock(mutex);
        if (isOpen) ++inside;
        return isOpen;
    }

    void leave() {
        ko::lock_guard lock(mutex);
        if (--inside == 0) emptied.notify_one();
    }

    ko::mutex mutex{"EngineGateMutex"};
    ko::condition emptied;
    bool isOpen KO_GUARDED_BY(mutex) = false;
    unsigned int inside KO_GUARDED_BY(mutex) = 0;
};

}  // namespace kel::http
