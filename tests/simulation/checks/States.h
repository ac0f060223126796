// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "checks/Scene.h"

namespace kel::http::simulation {

// A situation that worlds have to get into now and then: checks that are never put to the test prove nothing.
struct State {
    std::string_view name;
    bool (*isReached)(const Scene& scene);
};

// All of them: those that callers bring about, those of roads, of answers and networks, of proxies, and of requests that belong
// together.
std::vector<State> statesOfCallers();
std::vector<State> statesOfRoads();
std::vector<State> statesOfAnswers();
std::vector<State> statesOfProxies();
std::vector<State> statesOfKin();
const std::vector<State>& allStates();

// How many worlds have reached which.
using States = std::map<std::string_view, std::int64_t>;

// Adds one world.
void count(States& states, const Script& script, const Observation& seen);
// Those that none of the worlds has reached.
std::vector<std::string_view> neverReached(const States& states);

}  // namespace kel::http::simulation
