// SPDX-License-Identifier: MIT
#include "checks/CheckConnections.h"

#include <algorithm>
#include <set>

#include "parties/Configs.h"
#include "parties/Credentials.h"

namespace kel::http::simulation {
namespace {

using Faults = std::vector<std::string>;

void complain(std::int64_t request, const std::string& what, Faults& faults) {
    faults.push_back("request " + std::to_string(request) + ": " + what);
}

// Redirects behind the first answer may be followed over any connection.
void checkFresh(const Script& script, const Observation& seen, Faults& faults) {
    std::set<std::int64_t> connections;
    std::set<std::int64_t> known;
    for (const Arrival& arrival : seen.arrivals) {
        const bool is_used = !connections.insert(arrival.connection).second;
        const bool is_first = known.insert(arrival.request).second;
        const RequestScript* const request = script.request(arrival.request);
        if (is_used && is_first && request != nullptr && request->freshState != 0)
            complain(arrival.request, "it begins afresh over a connection that others have used", faults);
    }
}

void checkPart(const Script& script, const RequestScript& request, const Arrival& arrival, Faults& faults) {
    const std::size_t there = request.download >= 3 ? oldTarget(script, request).size() : 0;
    const std::string wanted = there == 0 ? std::string() : "bytes=" + std::to_string(there) + '-';
    const std::string asked = headerIn(arrival.head, "Range");
    if (asked != wanted)
        complain(request.id, "it asks for the part '" + asked + "' of its file instead of '" + wanted + "'", faults);
}

}  // namespace

void checkConnections(const Script& script, const Observation& seen, Faults& faults) {
    checkFresh(script, seen, faults);
    for (const Arrival& arrival : seen.arrivals) {
        const RequestScript* const request = script.request(arrival.request);
        const auto told = seen.requests.find(arrival.request);
        if (request == nullptr || request->own != 0 || told == seen.requests.end() || told->second.isChanged) continue;
        checkPart(script, *request, arrival, faults);
    }
}

}  // namespace kel::http::simulation
