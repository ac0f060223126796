// SPDX-License-Identifier: MIT
#pragma once

#include "Script.h"
#include "world/Time.h"

namespace kel::http::simulation {

// Requests to which nothing happens but what they ask for: their host accepts and stays, their reply is whole and not too
// slow, and neither they nor the network do anything odd. Whatever else becomes of them is the library's doing.

enum class Nuisance : std::uint8_t {
    none,
    resets  // connections may break at times
};

bool isPlain(const Script& script, const RequestScript& request, Nuisance nuisance);

// Between a request's arrival and the last byte of its answer.
Time lengthOf(const ReplyScript& reply, std::size_t arrival);

}  // namespace kel::http::simulation
