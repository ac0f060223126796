// SPDX-License-Identifier: MIT
#include "EventLoop.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace kel::http::demo {
namespace {

constexpr std::chrono::seconds deadline(30);

int milliseconds_until(std::chrono::steady_clock::time_point time) {
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(remaining.count(), 0));
}

}  // namespace

EventLoop::EventLoop() : engine_([](const std::function<void()>& closure) { closure(); }) {}

void EventLoop::run_until(const std::function<bool()>& done, const std::string& what) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!done()) {
        pollfd watched{executor_.descriptor(), POLLIN, 0};
        const int remaining = milliseconds_until(end);
        if (remaining == 0) throw std::runtime_error(fmt::format("no outcome came of {}", what));
        poll(&watched, 1, remaining);
        executor_.drain();
    }
}

void EventLoop::after_engine(std::function<void()> task) {
    engine_.queueRequest([this, arrived = std::move(task)] { executor_.post(arrived, 0); });
}

}  // namespace kel::http::demo
