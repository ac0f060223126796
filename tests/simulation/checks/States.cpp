// SPDX-License-Identifier: MIT
#include "checks/States.h"

namespace kel::http::simulation {

const std::vector<State>& allStates() {
    static const std::vector<State> all = [] {
        std::vector<State> states = statesOfCallers();
        for (const auto& more : {statesOfRoads(), statesOfAnswers(), statesOfProxies(), statesOfKin()})
            states.insert(states.end(), more.begin(), more.end());
        return states;
    }();
    return all;
}

void count(States& states, const Script& script, const Observation& seen) {
    const Scene scene(script, seen);
    for (const State& state : allStates()) {
        if (state.isReached(scene)) ++states[state.name];
    }
}

std::vector<std::string_view> neverReached(const States& states) {
    std::vector<std::string_view> names;
    for (const State& state : allStates()) {
        if (states.count(state.name) == 0) names.push_back(state.name);
    }
    return names;
}

}  // namespace kel::http::simulation
