// SPDX-License-Identifier: MIT
#include "kel-http/curl/WaitTime.h"

namespace kel::http {

timeval waitTime(long timer_ms) {
    timeval time{};
    time.tv_sec = 30;
    if (timer_ms < 0) return time;

    const long seconds = timer_ms / 1000;
    if (seconds < 61) {
        time.tv_sec = seconds;
        time.tv_usec = (timer_ms % 1000) * 1000;
    } else {
        time.tv_sec = 60;
    }
    return time;
}

timeval sooner(const timeval& time, std::chrono::nanoseconds other) {
    using namespace std::chrono;
    const auto whole = other > nanoseconds(0) ? duration_cast<microseconds>(other + nanoseconds(999)) : microseconds(0);
    if (whole >= seconds(time.tv_sec) + microseconds(time.tv_usec)) return time;
    timeval shorter{};
    shorter.tv_sec = static_cast<time_t>(duration_cast<seconds>(whole).count());
    shorter.tv_usec = static_cast<suseconds_t>((whole % seconds(1)).count());
    return shorter;
}

int waitMilliseconds(const timeval& time) {
    return static_cast<int>(time.tv_sec * 1000 + (time.tv_usec + 999) / 1000);
}

}  // namespace kel::http
