// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace kel::http::simulation {

// Of a world: since its beginning, as its steady clock tells it.
using Time = std::chrono::microseconds;

constexpr Time Never = Time::max();
// What the steady clock says when a world begins.
constexpr Time Beginning = std::chrono::seconds(1000);

}  // namespace kel::http::simulation
