// SPDX-License-Identifier: MIT
// simulation --seeds FIRST..LAST   lives these worlds; exit status 1 when one breaks a promise
// simulation --replay SEED         lives one and tells what happens
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Life.h"
#include "checks/Checks.h"

int main(int count, char** words) {
    namespace simulation = kel::http::simulation;
    const std::string command = count == 3 ? words[1] : "";
    if (command == "--replay") {
        const simulation::Script script = simulation::generate(std::strtoull(words[2], nullptr, 10));
        std::fputs(print(script).c_str(), stdout);
        const simulation::Observation seen = simulation::live(script, stdout);
        for (const std::string& fault : simulation::faults(script, seen)) std::printf("FAULT: %s\n", fault.c_str());
        std::printf("hash %016llx, %llu events\n", static_cast<unsigned long long>(seen.hash),
                    static_cast<unsigned long long>(seen.events));
        return 0;
    }
    if (command != "--seeds") return 2;
    char* rest = nullptr;
    const unsigned long long first = std::strtoull(words[2], &rest, 10);
    const unsigned long long last = *rest == '.' ? std::strtoull(rest + 2, nullptr, 10) : first;
    int failed = 0;
    unsigned long long events = 0;
    unsigned long long all = 0;
    for (unsigned long long seed = first; seed <= last; ++seed) {
        const simulation::Script script = simulation::generate(seed);
        const simulation::Observation seen = simulation::live(script);
        events += seen.events;
        all = all * 1099511628211U + seen.hash;
        const auto faults = simulation::faults(script, seen);
        for (const std::string& fault : faults) std::printf("seed %llu: %s\n", seed, fault.c_str());
        if (!faults.empty()) ++failed;
    }
    std::printf("%llu seeds, %d failed, %llu events, hash %016llx\n", last - first + 1, failed, events, all);
    return failed == 0 ? 0 : 1;
}
