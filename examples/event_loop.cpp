// SPDX-License-Identifier: MIT
// Fetches one URL in a program with an event loop of its own: requests, results and a clock share one thread.
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"

namespace {

// Stands for whatever else the program does: becomes readable ten times a second.
int start_clock() {
    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec every_100_ms = {{0, 100'000'000}, {0, 100'000'000}};
    timerfd_settime(clock, 0, &every_100_ms, nullptr);
    return clock;
}

void tick(int clock) {
    std::uint64_t times = 0;
    if (read(clock, &times, sizeof times) == sizeof times) std::puts("tick");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: %s URL\n", argv[0]), 1;

    ko::loop_executor executor;  // outlives the engine, which posts to it
    kel::http::Engine engine([](const std::function<void()>& closure) { closure(); });
    const auto client = kel::http::createClient(executor, *logging::getLogger("example", 0));

    int exit_code = -1;
    kel::http::RequestConfig request;
    request.url = argv[1];
    // The handle cancels the request should it still run when this function is left.
    const kel::http::Client::Handle handle = client->start_request(
        request, {},
        [&exit_code](const kel::http::ResponseData& response) {
            std::printf("status %d, %zu bytes\n", response.status, response.body.size());
            exit_code = 0;
        },
        [&exit_code](const kel::http::ErrorData& error) {
            std::fprintf(stderr, "no answer: %s\n", error.message.c_str());
            exit_code = 1;
        });

    const int clock = start_clock();
    while (exit_code < 0) {
        pollfd watched[] = {{executor.descriptor(), POLLIN, 0}, {clock, POLLIN, 0}};
        poll(watched, 2, -1);
        if (watched[1].revents != 0) tick(clock);
        executor.drain();  // runs the callbacks above
    }
    close(clock);
    return exit_code;
}
