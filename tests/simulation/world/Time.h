// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace kel::http::simulation {

// Of a world: since its beginning, as its steady clock tells it.
using Time = std::chrono::microseconds;

constexpr Time Never = Time::max();

}  // namespace kel::http::simulation
