// SPDX-License-Identifier: MIT
#include <sys/eventfd.h>
#include <sys/select.h>

#include <algorithm>

#include "kel-http/curl/Engine.h"
#include "kel-http/curl/Hooks.h"
#include "kel-http/curl/WaitTime.h"
#include "kel-http/model/LogLine.h"
#include "logging/tovanlog.h"

namespace kel::http {

void Engine::doCurlProcessing() {
    checkEngineThread();
    writeLine(*logger, log_level::detail, "Engine::{}", "doCurlProcessing");

    long timerMs = -1;
    curl_multi_timeout(multi, &timerMs);
    const bool woken = canSelect() ? waitWithSelect(timerMs) : waitWithPoll(timerMs);
    if (woken) drainWakeups();

    int running = 0;
    engine_curl_multi_perform(multi, &running);
}

// An fd_set has room for FD_SETSIZE descriptors only: one beyond would be written outside of it, and libcurl leaves
// such sockets out of its sets without a word, so that their transfers would sleep through every wait.
bool Engine::canSelect() const {
    return wakeupDescriptor < FD_SETSIZE && !beyondSelect;
}

bool Engine::waitWithSelect(long timerMs) {
    timeval timeout = waitTime(timerMs);
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

bool Engine::waitWithPoll(long timerMs) {
    curl_waitfd wakeup{};
    wakeup.fd = wakeupDescriptor;
    wakeup.events = CURL_WAIT_POLLIN;
    int ready = 0;
    const CURLMcode result = curl_multi_wait(multi, &wakeup, 1, waitMilliseconds(waitTime(timerMs)), &ready);
    return result == CURLM_OK && ready > 0 && (wakeup.revents & CURL_WAIT_POLLIN) != 0;
}

void Engine::drainWakeups() {
    writeLine(*logger, log_level::detail, "Engine::{}: waking up", "doCurlProcessing");
    eventfd_t count = 0;
    if (eventfd_read(wakeupDescriptor, &count) != 0) tovanlog_write(2, 0, "CurlEngine: Error reading eventfd\n", 34);
}

// libcurl tells of every socket it opens (`CURLOPT_SOCKOPTFUNCTION`).
int Engine::watchSocket(void* engine, curl_socket_t descriptor, curlsocktype /*purpose*/) {
    if (descriptor >= FD_SETSIZE) static_cast<Engine*>(engine)->beyondSelect = true;
    return CURL_SOCKOPT_OK;
}

}  // namespace kel::http
