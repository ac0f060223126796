// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Script.h"

namespace kel::http::simulation {

// Makes one world in twelve another one: requests that come one after the other, with lists of the same proxies in different
// orders. Some of these never work, and some servers say nothing to whoever asks first. Draws nothing of what the other worlds
// are made of.
void addProxyOrders(Script& script, std::uint64_t seed);

}  // namespace kel::http::simulation
