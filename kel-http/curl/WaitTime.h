// SPDX-License-Identifier: MIT
#pragma once

#include <sys/time.h>

namespace kel::http {

// How long the engine waits for libcurl's next timer, which is due in `timer_ms` milliseconds; negative: there is none.
// 30 s without a timer and about 60 s at most, so that a timer added late is still served.
timeval waitTime(long timer_ms);

// The same in whole milliseconds, rounded up: a wait that ends too early would spin until the timer is due.
int waitMilliseconds(const timeval& time);

}  // namespace kel::http
