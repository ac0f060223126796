// SPDX-License-Identifier: MIT
#include "Meter.h"

#include <fmt/format.h>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
// bench/run sees that nothing has been counted.
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#endif

namespace kel::http::bench {
namespace {

long long microseconds(const timeval& time) {
    return time.tv_sec * 1000000LL + time.tv_usec;
}

long long processorTime(const rusage& usage) {
    return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

}  // namespace

Meter::Meter() {
    getrusage(RUSAGE_SELF, &before_);
    begin_ = std::chrono::steady_clock::now();
    CALLGRIND_START_INSTRUMENTATION;
}

std::string Meter::stop() const {
    CALLGRIND_STOP_INSTRUMENTATION;
    const auto elapsed = std::chrono::steady_clock::now() - begin_;
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    return fmt::format("cpu={} real={} switches={} since_start={}", processorTime(after) - processorTime(before_),
                       std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count(),
                       after.ru_nvcsw - before_.ru_nvcsw, processorTime(after));
}

}  // namespace kel::http::bench
