// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <string_view>

#include "kel-http/TimingData.h"

namespace kel::http::tool {

// One step of a transfer: when it began, counted from the transfer's start, and how long it took.
struct Phase {
    std::string_view name;
    std::chrono::microseconds begin;
    std::chrono::microseconds duration;
};

// Look-up, connecting, TLS, sending, waiting for the first byte, receiving: in this order, without gaps, together the
// whole time. With redirects each phase is the sum over all of them. What did not happen took no time.
using Phases = std::array<Phase, 6>;

Phases phases_of(const TimingData& timing);

// As every person reads it: "12.34 ms".
double milliseconds_of(std::chrono::microseconds time);

}  // namespace kel::http::tool
