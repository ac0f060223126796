// SPDX-License-Identifier: MIT
#include "model/Murky.h"

#include <algorithm>
#include <set>

#include "parties/Configs.h"

namespace kel::http::simulation {
namespace {

// What comes behind an answer's end is the beginning of the next one for whoever asks over that connection in this moment.
bool leavesBytesBehind(const Script& script) {
    return std::any_of(script.replies.begin(), script.replies.end(),
                       [](const ReplyScript& reply) { return reply.lie == Lie::shorter; });
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
    if (leavesBytesBehind(script)) return true;
    std::set<std::int64_t> exchanges{request.exchange};
    std::set<std::int64_t> hosts{request.host};
    for (bool is_growing = true; is_growing;) {
        is_growing = false;
        for (const ReplyScript& reply : script.replies) {
            if (exchanges.count(reply.exchange) == 0) continue;
            if (reply.lie == Lie::two) return true;
            if (reply.range != Range::ignored && request.download >= 3) return true;
            if (reply.location < 0) continue;
            hosts.insert(reply.locationHost);
            is_growing = exchanges.insert(reply.location).second || is_growing;
        }
    }
    return std::any_of(hosts.begin(), hosts.end(),
                       [&script](std::int64_t id) { return script.host(id).tlsCut != Cut::none; });
}

bool isRefused(const RequestScript& request) {
    const bool is_put = request.verb == Verb::PUT && request.own == 0;
    return request.badUrl != 0 || request.headers == 3 || (is_put && request.bodyFile == 2);
}

bool isMurky(const Script& script, const RequestScript& request) {
    const bool has_files = !filesOf(request).empty();
    return isMurkyOutside(script, request) || request.own != 0 || request.download >= 3 || isRefused(request) ||
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
