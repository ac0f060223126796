// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <set>

#include "Script.h"

namespace kel::http::simulation {

// Whether what servers, proxies and the network do to this request lets it end in several ways: any single outcome in time
// is right then. What befalls the process may befall anybody.
inline bool isMurky(const Script& script, const RequestScript& request) {
    if (!script.troubles.empty()) return true;
    if (script.world.proxyMode != ProxyMode::off && request.proxies > 0) return true;
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

}  // namespace kel::http::simulation
