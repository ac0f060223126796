// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "runs/Verdict.h"

namespace kel::http::simulation {

// A world that broke a promise, or brought its process down.
struct Finding {
    std::uint64_t seed = 0;
    std::vector<std::string> faults;
    // What a process that died has written to standard error.
    std::string errors;
};

struct Tally {
    std::uint64_t seeds = 0;
    std::int64_t requests = 0;
    std::uint64_t events = 0;
    Time time{0};
    Reached states;
    // Of all worlds, in whichever order they were lived.
    std::uint64_t hash = 0;
    std::vector<Finding> findings;
};

// What is to be lived, and how. Seeds are lived in child processes, some in a row in each: a crash or a hang ends none but
// its own. Whatever goes wrong in a row is lived again alone, which shows whether it takes those before.
struct SeedRun {
    std::uint64_t first = 1;
    std::uint64_t last = 1;
    // Lives one, in a child.
    std::function<Verdict(std::uint64_t seed)> live;
    // Processes at a time, and seeds in one.
    std::int64_t jobs = 1;
    std::uint64_t row = 100;
    // Of real time; a world in which so long nothing comes to an end hangs.
    std::chrono::seconds patience{60};
    // Called as rows end; true: that is enough, no further row begins.
    std::function<bool(const Tally&)> enough;
    std::function<void(const Finding&)> onFinding;
};

// The world of a seed.
Verdict liveSeed(std::uint64_t seed);

Tally liveSeeds(const SeedRun& run);

// The same with a script, in a child of its own: what is wrong with it.
Finding liveAlone(const Script& script, std::chrono::seconds patience);

}  // namespace kel::http::simulation
