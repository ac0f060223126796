// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineWait.h"

#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>

#include "kel-http/curl/WaitTime.h"
#include "kel-http/model/LogLine.h"
#include "logging/tovanlog.h"

namespace kel::http {

EngineWait::EngineWait(logging::Logger& log) : wakeupDescriptor(eventfd(0, 0)), logger(&log) {}

EngineWait::~EngineWait() {
    close(wakeupDescriptor);
}

void EngineWait::wakeUp() const {
    if (eventfd_write(wakeupDescriptor, 1) != 0) tovanlog_write(2, 0, "CurlEngine: Error writing eventfd\n", 34);
}

void EngineWait::wait(CURLM* multi, tl::optional<std::chrono::steady_clock::time_point> deadline) {
    const timeval timeout = timeUntil(multi, deadline);
    const bool woken = canSelect() ? waitWithSelect(multi, timeout) : waitWithPoll(multi, timeout);
    if (woken) drainWakeups();
}

timeval EngineWait::timeUntil(CURLM* multi, tl::optional<std::chrono::steady_clock::time_point> deadline) {
    long timerMs = -1;
    curl_multi_timeout(multi, &timerMs);
    const timeval timeout = waitTime(timerMs);
    return deadline ? sooner(timeout, *deadline - std::chrono::steady_clock::now()) : timeout;
}

// An fd_set has room for FD_SETSIZE descriptors only: one beyond would be written outside of it, and libcurl leaves
// such sockets out of its sets without a word, so that their transfers would sleep through every wait.
bool EngineWait::canSelect() const {
    return wakeupDescriptor < FD_SETSIZE && !beyondSelect;
}

bool EngineWait::waitWithSelect(CURLM* multi, timeval timeout) const {
    fd_set readable;
    fd_set writable;
    fd_set exceptional;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    FD_ZERO(&exceptional);
    int highest = -1;
    curl_multi_fdset(multi, &readable, &writable, &exceptional, &highest);
    FD_SET(wakeupDescriptor, &readable);
    highest = std::max(highest, wakeupDescriptor);

    // After an error, an interruption for one, the sets say nothing; the transfers are driven all the same.
    return select(highest + 1, &readable, &writable, &exceptional, &timeout) > 0 &&
           FD_ISSET(wakeupDescriptor, &readable);
}

bool EngineWait::waitWithPoll(CURLM* multi, const timeval& timeout) const {
    curl_waitfd wakeup{};
    wakeup.fd = wakeupDescriptor;
    wakeup.events = CURL_WAIT_POLLIN;
    int ready = 0;
    const CURLMcode result = curl_multi_wait(multi, &wakeup, 1, waitMilliseconds(timeout), &ready);
    return result == CURLM_OK && ready > 0 && (wakeup.revents & CURL_WAIT_POLLIN) != 0;
}

void EngineWait::drainWakeups() const {
    writeLine(*logger, log_level::detail, "Engine::{}: waking up", "doCurlProcessing");
    eventfd_t count = 0;
    if (eventfd_read(wakeupDescriptor, &count) != 0) tovanlog_write(2, 0, "CurlEngine: Error reading eventfd\n", 34);
}

void EngineWait::watch(curl_socket_t descriptor) {
    if (descriptor >= FD_SETSIZE) beyondSelect = true;
}

}  // namespace kel::http
