// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Script.h"
#include "world/Time.h"

namespace kel::http::simulation {

// What became of one world.
struct Verdict {
    // A sentence for each promise that was broken; none is well.
    std::vector<std::string> faults;
    // Which of the interesting states were reached.
    std::vector<std::string> states;
    std::uint64_t hash = 0;
    std::uint64_t events = 0;
    std::int64_t requests = 0;
    Time time{0};
};

// Lives the script and compares. With `account` each event is written there. As live().
Verdict judge(const Script& script, std::FILE* account = nullptr);

// So often each state was reached.
using Reached = std::map<std::string, std::uint64_t>;

// The states that none of these worlds has reached.
std::vector<std::string> missingStates(const Reached& reached);

// What the first engine of a process does for all later ones is done, so that worlds cost and keep the same wherever
// they stand in a row. Leaves no thread behind.
void warmUp();

// A verdict as lines, for a pipe; the last one completes it.
std::vector<std::string> linesOf(const Verdict& verdict);

class VerdictReader {
 public:
    // True when `line` was the last of a verdict.
    bool take(const std::string& line);
    // That verdict.
    Verdict release();

 private:
    Verdict verdict_;
};

}  // namespace kel::http::simulation
