// SPDX-License-Identifier: MIT
#include "model/Murky.h"

#include <algorithm>
#include <set>
#include <vector>

#include "parties/Configs.h"

namespace kel::http::simulation {
namespace {

bool isResumed(const RequestScript& request) {
    return request.download >= 3 && request.own == 0;
}

// Where a request may come to, and what it may be told there.
struct Reach {
    std::set<std::int64_t> exchanges;
    std::set<std::int64_t> hosts;
    std::vector<ReplyScript> replies;
};

Reach reachOf(const Script& script, const RequestScript& request) {
    Reach reach{{request.exchange}, {request.host}, {}};
    for (bool is_growing = true; is_growing;) {
        is_growing = false;
        reach.replies.clear();
        for (const ReplyScript& reply : script.replies) {
            if (reach.exchanges.count(reply.exchange) == 0) continue;
            reach.replies.push_back(reply);
            if (reply.location < 0) continue;
            reach.hosts.insert(reply.locationHost);
            is_growing = reach.exchanges.insert(reply.location).second || is_growing;
        }
    }
    return reach;
}

template <typename Condition>
bool anyReply(const Reach& reach, Condition condition) {
    return std::any_of(reach.replies.begin(), reach.replies.end(), condition);
}

// What comes behind an answer's end is the beginning of the next one for whoever asks over that connection in this moment.
bool meetsBytesLeftBehind(const Script& script, const Reach& own) {
    return std::any_of(script.requests.begin(), script.requests.end(), [&](const RequestScript& request) {
        const Reach reach = reachOf(script, request);
        return anyReply(reach, [](const ReplyScript& reply) { return reply.lie == Lie::shorter; }) &&
               std::any_of(reach.hosts.begin(), reach.hosts.end(),
                           [&own](std::int64_t host) { return own.hosts.count(host) != 0; });
    });
}

bool changesFiles(Deed deed) {
    return deed == Deed::grow || deed == Deed::shrink || deed == Deed::remove;
}

bool speaksTls(const Script& script) {
    return std::any_of(script.hosts.begin(), script.hosts.end(), [](const HostScript& host) { return host.tls != 0; });
}

}  // namespace

bool isMurkyOutside(const Script& script, const RequestScript& request) {
    if (script.world.proxyMode != ProxyMode::off && request.proxies > 0) return true;
    const Reach reach = reachOf(script, request);
    return meetsBytesLeftBehind(script, reach) ||
           anyReply(reach,
                    [&request](const ReplyScript& reply) {
                        return reply.lie == Lie::two || (reply.range != Range::ignored && isResumed(request));
                    }) ||
           std::any_of(reach.hosts.begin(), reach.hosts.end(),
                       [&script](std::int64_t id) { return script.host(id).tlsCut != Cut::none; });
}

bool isRefused(const RequestScript& request) {
    const bool is_put = request.verb == Verb::PUT && request.own == 0;
    return request.badUrl != 0 || request.headers == 3 || (is_put && request.bodyFile == 2);
}

bool isMurky(const Script& script, const RequestScript& request) {
    const bool has_files = !filesOf(request).empty();
    return isMurkyOutside(script, request) || isResumed(request) || (request.own != 0 && request.bodyFile == 2) ||
           isRefused(request) ||
           std::any_of(script.actions.begin(), script.actions.end(), [&](const ActionScript& action) {
               return has_files && action.request == request.id && changesFiles(action.deed);
           });
}

// The wall clock is nobody's concern but that of certificates.
Time firstTrouble(const Script& script) {
    Time first = Never;
    for (const TroubleScript& trouble : script.troubles) {
        if (trouble.kind != Trouble::wallClock || speaksTls(script)) first = std::min(first, Time(trouble.at));
    }
    return first;
}

}  // namespace kel::http::simulation
