// SPDX-License-Identifier: MIT
#include "runs/Verdict.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "Life.h"
#include "checks/Checks.h"
#include "checks/States.h"

namespace kel::http::simulation {
namespace {

constexpr const char* fault_word = "fault ";
constexpr const char* state_word = "state ";

std::string onOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// The behind of the line, if it begins like this.
bool takeWord(const std::string& line, const std::string& word, std::string& rest) {
    if (line.compare(0, word.size(), word) != 0) return false;
    rest = line.substr(word.size());
    return true;
}

std::vector<std::string> statesOf(const Script& script, const Observation& seen) {
    States states;
    count(states, script, seen);
    std::vector<std::string> reached;
    for (const auto& [name, worlds] : states) {
        if (worlds > 0) reached.emplace_back(name);
    }
    return reached;
}

}  // namespace

std::vector<std::string> missingStates(const Reached& reached) {
    std::vector<std::string> missing;
    for (const State& state : allStates()) {
        if (reached.count(std::string(state.name)) == 0) missing.emplace_back(state.name);
    }
    return missing;
}

Verdict judge(const Script& script, std::FILE* account) {
    const Observation seen = live(script, account);
    Verdict verdict;
    verdict.faults = faults(script, seen);
    verdict.states = statesOf(script, seen);
    verdict.hash = seen.hash;
    verdict.events = seen.events;
    verdict.requests = std::count_if(seen.requests.begin(), seen.requests.end(),
                                     [](const auto& request) { return request.second.started; });
    verdict.time = seen.end - Beginning;
    return verdict;
}

void warmUp() {
    Script script;
    script.requests.emplace_back();
    live(script);
}

std::vector<std::string> linesOf(const Verdict& verdict) {
    std::vector<std::string> lines;
    for (const std::string& fault : verdict.faults) lines.push_back(fault_word + onOneLine(fault));
    for (const std::string& state : verdict.states) lines.push_back(state_word + onOneLine(state));
    std::ostringstream last;
    last << "lived " << verdict.hash << ' ' << verdict.events << ' ' << verdict.requests << ' ' << verdict.time.count();
    lines.push_back(last.str());
    return lines;
}

bool VerdictReader::take(const std::string& line) {
    std::string rest;
    if (takeWord(line, fault_word, rest)) {
        verdict_.faults.push_back(rest);
        return false;
    }
    if (takeWord(line, state_word, rest)) {
        verdict_.states.push_back(rest);
        return false;
    }
    std::istringstream words(line);
    std::string word;
    std::int64_t microseconds = 0;
    words >> word >> verdict_.hash >> verdict_.events >> verdict_.requests >> microseconds;
    verdict_.time = Time(microseconds);
    return true;
}

Verdict VerdictReader::release() {
    return std::exchange(verdict_, Verdict());
}

}  // namespace kel::http::simulation
