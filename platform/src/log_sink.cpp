// SPDX-License-Identifier: MIT
#include "log_sink.h"

#include <array>
#include <cstddef>
#include <new>
#include <utility>

#include "ko/mutex.h"

namespace logging {
namespace {

struct Output {
    ko::mutex mutex{"LogSinkMutex"};
    ko::host::LogSink sink KO_GUARDED_BY(mutex);
};

// Never destroyed: objects with static storage log from their destructors. Takes no memory: whoever writes a line is told
// that it can not fail.
Output& output() {
    alignas(Output) static std::array<std::byte, sizeof(Output)> place;
    static auto& instance = *new (place.data()) Output;
    return instance;
}

thread_local bool within_sink = false;

void call(const ko::host::LogSink& sink, const ko::host::LogLine& line) noexcept {
    within_sink = true;
    try {
        sink(line);
    } catch (...) {  // a full disk must not stop the one who only wanted to say something
    }
    within_sink = false;
}

}  // namespace

void send_to_sink(const ko::host::LogLine& line) noexcept {
    if (within_sink) return;
    Output& out = output();
    ko::lock_guard lock(out.mutex);
    if (out.sink) call(out.sink, line);
}

void set_sink(ko::host::LogSink sink) {
    Output& out = output();
    ko::lock_guard lock(out.mutex);
    out.sink.swap(sink);  // the old one is destroyed with the parameter, after the lock has been released
}

}  // namespace logging
