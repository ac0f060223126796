// SPDX-License-Identifier: MIT
#include "model/Murky.h"

#include <algorithm>
#include <set>

namespace kel::http::simulation {
namespace {

bool mayBeRedirected(const Script& script, const RequestScript& request) {
    return std::any_of(script.replies.begin(), script.replies.end(), [&request](const ReplyScript& reply) {
        return reply.exchange == request.exchange && reply.location >= 0;
    });
}

// What comes behind an answer's end is the beginning of the next one for whoever asks over that connection in this moment.
bool leavesBytesBehind(const Script& script) {
    return std::any_of(script.replies.begin(), script.replies.end(),
                       [](const ReplyScript& reply) { return reply.lie == Lie::shorter; });
}

// The end of an engine or an executor concerns everybody, the rest the request that is meant.
bool isConcerned(const RequestScript& request, const ActionScript& action) {
    switch (action.deed) {
        case Deed::destroyEngine:
        case Deed::endExecutor:
            return true;
        case Deed::rerun:
        case Deed::grow:
        case Deed::shrink:
        case Deed::remove:
            return action.request == request.id;
        default:
            return false;
    }
}

}  // namespace

// What servers, proxies and the network do; what befalls the process may befall anybody.
bool isMurkyOutside(const Script& script, const RequestScript& request) {
    if (!script.troubles.empty()) return true;
    if (script.world.proxyMode != ProxyMode::off && request.proxies > 0) return true;
    if (leavesBytesBehind(script)) return true;
    std::set<std::int64_t> exchanges{request.exchange};
    std::set<std::int64_t> hosts{request.host};
    for (bool is_growing = true; is_growing;) {
        is_growing = false;
        for (const ReplyScript& reply : script.replies) {
            if (exchanges.count(reply.exchange) == 0) continue;
            if (reply.lie != Lie::none || reply.challenge != Challenge::none) return true;
            if (reply.range != Range::ignored && request.download != 0) return true;
            if (reply.location < 0) continue;
            hosts.insert(reply.locationHost);
            is_growing = exchanges.insert(reply.location).second || is_growing;
        }
    }
    return std::any_of(hosts.begin(), hosts.end(), [&script](std::int64_t id) {
        const HostScript host = script.host(id);
        return host.deadAddresses > 0 || host.tls != 0;
    });
}

bool isRefused(const RequestScript& request) {
    const bool is_put = request.verb == Verb::PUT && request.own == 0;
    return request.badUrl != 0 || request.headers == 3 || (is_put && request.bodyFile == 2);
}

bool isMurky(const Script& script, const RequestScript& request) {
    const bool is_sent_from_file = request.bodyFile != 0 || request.form != 0;
    return isMurkyOutside(script, request) || request.own != 0 || request.download >= 3 || request.speedLimit != 0 ||
           request.after >= 0 || isRefused(request) || (is_sent_from_file && mayBeRedirected(script, request)) ||
           std::any_of(script.actions.begin(), script.actions.end(),
                       [&request](const ActionScript& action) { return isConcerned(request, action); });
}

}  // namespace kel::http::simulation
