// SPDX-License-Identifier: MIT
#include "checks/Checks.h"

#include "checks/CheckCallers.h"
#include "checks/CheckFiles.h"

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

}  // namespace

std::vector<std::string> faults(const Script& script, const Observation& seen) {
    Faults faults;
    if (seen.isStuck) faults.emplace_back("the world does not come to its end");
    if (seen.sockets != 0) faults.push_back(std::to_string(seen.sockets) + " sockets are left");
    for (const auto& [id, request] : seen.requests) {
        if (request.runs.empty()) checkCount(id, request, faults);
        if (const RequestScript* const asked = script.request(id)) checkTime(script, *asked, request, faults);
    }
    for (const Arrival& arrival : seen.arrivals) {
        if (!arrival.bodyIsRight) faults.push_back(nameOf(arrival.request) + "its body arrived spoilt");
    }
    checkCallers(script, seen, faults);
    checkFiles(script, seen, faults);
    return faults;
}

}  // namespace kel::http::simulation
