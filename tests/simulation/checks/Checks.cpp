// SPDX-License-Identifier: MIT
#include "checks/Checks.h"

#include "checks/CheckCallers.h"
#include "checks/CheckConnections.h"
#include "checks/CheckFiles.h"
#include "checks/CheckPlain.h"
#include "checks/CheckProgress.h"
#include "checks/CheckProxies.h"
#include "checks/RoadCheck.h"
#include "model/Model.h"
#include "model/Murky.h"

namespace kel::http::simulation {
namespace {

constexpr Time margin = std::chrono::milliseconds(50);

using Faults = std::vector<std::string>;

std::string nameOf(std::int64_t request) {
    return "request " + std::to_string(request) + ": ";
}

void checkCount(std::int64_t id, const SeenRequest& seen, Faults& faults) {
    const std::size_t wanted = seen.cancelled || !seen.started ? 0 : 1;
    if (seen.outcomes.size() == wanted) return;
    faults.push_back(nameOf(id) + std::to_string(seen.outcomes.size()) + " outcomes instead of " +
                     std::to_string(wanted));
}

// Each proxy that is tried has all the time to itself.
std::int64_t attempts(const Script& script, const RequestScript& request) {
    if (script.world.proxyMode != ProxyMode::list || request.proxies <= 0) return 1;
    return static_cast<std::int64_t>(std::to_string(request.proxies).size());
}

void checkTime(const Script& script, const RequestScript& request, const SeenRequest& seen, Faults& faults) {
    if (request.timeout <= 0 || seen.outcomes.empty()) return;
    const Time took = seen.outcomes.front().at - seen.startedAt;
    const std::int64_t times = attempts(script, request);
    const Time limit = std::chrono::milliseconds(request.timeout) * times;
    if (took <= limit + margin * times) return;
    faults.push_back(nameOf(request.id) + "its outcome came after " + std::to_string(took.count()) +
                     " us, with a limit of " + std::to_string(limit.count()));
}

void checkProgress(std::int64_t id, const SeenRequest& seen, Faults& faults) {
    if (seen.outcomes.empty() || seen.outcomes.front().isError) return;
    const auto size = static_cast<std::int64_t>(seen.outcomes.front().body.size());
    if (seen.mostProgress > size)
        faults.push_back(nameOf(id) + "progress told of " + std::to_string(seen.mostProgress) + " bytes of " +
                         std::to_string(size));
}

// Of a caller's own request the first run is told of, and not when it was cancelled.
bool isToldOfInPart(const SeenRequest& request) {
    return !request.started || request.runs.size() > 1 || (!request.runs.empty() && request.cancelled);
}

// Whoever had ended before has met nothing of it.
bool mayBeTroubled(const Script& script, const Observation& seen, const SeenRequest& request) {
    const Time trouble = firstTrouble(script);
    if (trouble == Never) return false;
    return request.outcomes.empty() || request.outcomes.front().at - seen.begin >= trouble;
}

void checkRoads(const Script& script, const Observation& seen, Faults& faults) {
    const Model model(script);
    for (const RequestScript& request : script.requests) {
        const auto told = seen.requests.find(request.id);
        if (told == seen.requests.end() || !model.knows(request) || isMurky(script, request)) continue;
        if (isToldOfInPart(told->second) || mayBeTroubled(script, seen, told->second)) continue;
        for (const std::string& fault : faultsOnRoad(script, seen, request))
            faults.push_back(nameOf(request.id) + fault);
    }
}

void checkArrivals(const Script& script, const Observation& seen, Faults& faults) {
    for (const Arrival& arrival : seen.arrivals) {
        if (!arrival.bodyIsRight) faults.push_back(nameOf(arrival.request) + "its body arrived spoilt");
        const bool is_last = !seen.last.outcomes.empty() && arrival.at >= seen.last.startedAt;
        if (script.request(arrival.request) == nullptr && !is_last)
            faults.push_back("host " + std::to_string(arrival.host) + " was asked for what nobody wanted");
    }
}

// When all troubles are over, whoever asks is served.
void checkLast(const Observation& seen, Faults& faults) {
    if (!seen.last.started) return;
    if (seen.last.outcomes.size() != 1) {
        faults.push_back("the last request has " + std::to_string(seen.last.outcomes.size()) + " outcomes");
    } else if (const SeenOutcome& outcome = seen.last.outcomes.front(); outcome.isError || outcome.status != 200) {
        faults.push_back("the last request was not served: " + outcome.message);
    }
}

// Nothing is exempt: whatever one world leaves would add up over a device's years. What is made once in a process has been
// made by the world before the first one.
void checkRemains(const Observation& seen, Faults& faults) {
    if (seen.sockets != 0) faults.push_back(std::to_string(seen.sockets) + " sockets are left");
    if (seen.descriptors > 0) faults.push_back(std::to_string(seen.descriptors) + " descriptors are left");
    if (seen.blocks > 0)
        faults.push_back(std::to_string(seen.blocks) + " blocks with " + std::to_string(seen.bytes) +
                         " bytes are left");
    for (const std::string& name : seen.survivors) faults.push_back(name + " is still there though nobody needs it");
    for (const std::string& file : seen.files) faults.push_back("a file is left: " + file);
}

}  // namespace

std::vector<std::string> faults(const Script& script, const Observation& seen) {
    Faults faults;
    if (seen.isStuck) faults.emplace_back("the world does not come to its end");
    for (const auto& [id, request] : seen.requests) {
        if (request.runs.empty()) checkCount(id, request, faults);
        const RequestScript* const asked = script.request(id);
        if (asked == nullptr) continue;
        checkTime(script, *asked, request, faults);
        // A download is told of the pages of redirects as well, and a resumed one of what there was.
        if (asked->download == 0 && !isMurkyOutside(script, *asked) && !mayBeTroubled(script, seen, request))
            checkProgress(id, request, faults);
    }
    checkRoads(script, seen, faults);
    checkArrivals(script, seen, faults);
    checkLast(seen, faults);
    checkRemains(seen, faults);
    checkCallers(script, seen, faults);
    checkProxies(script, seen, faults);
    checkFiles(script, seen, faults);
    checkConnections(script, seen, faults);
    checkPlain(script, seen, faults);
    checkProgress(script, seen, faults);
    return faults;
}

}  // namespace kel::http::simulation
