// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineSettling.h"

namespace kel::http {

void EngineSettling::await(std::uint32_t ticket) {
    ko::lock_guard lock(mutex);
    if (isDue(ticket)) return;
    Waiter self{ticket, waiters};
    waiters = &self;
    while (!self.released) self.changed.wait(mutex);
}

void EngineSettling::reach(std::uint32_t ticket) {
    if (ticket == told) return;
    told = ticket;
    ko::lock_guard lock(mutex);
    reached = ticket;
    releaseAllDue();
}

void EngineSettling::end() {
    ko::lock_guard lock(mutex);
    ended = true;
    releaseAllDue();
}

// The tickets may wrap.
bool EngineSettling::isDue(std::uint32_t ticket) const {
    return ended || static_cast<std::int32_t>(reached - ticket) >= 0;
}

// A waiter that is released is gone once the lock is.
void EngineSettling::releaseAllDue() {
    Waiter** place = &waiters;
    while (Waiter* const waiter = *place) {
        if (isDue(waiter->ticket)) {
            *place = waiter->next;
            waiter->released = true;
            waiter->changed.notify_one();
        } else {
            place = &waiter->next;
        }
    }
}

}  // namespace kel::http
