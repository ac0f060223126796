// SPDX-License-Identifier: MIT
#pragma once

#include <sys/time.h>

#include <chrono>

namespace kel::http {

// How long the engine waits for libcurl's next timer, which is due in `timer_ms` milliseconds; negative: there is none.
// 30 s without a timer and about 60 s at most, so that a timer added late is still served.
timeval waitTime(long timer_ms);

// `time`, or `other` if that is shorter; rounded up to microseconds, and nothing when it is negative.
timeval sooner(const timeval& time, std::chrono::nanoseconds other);

// `time` in whole milliseconds, rounded up: a wait that ends too early would spin until the timer is due.
int waitMilliseconds(const timeval& time);

}  // namespace kel::http
