// SPDX-License-Identifier: MIT
#include "GeneratorMoments.h"

#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::uint64_t own_calm = 0xCA1;
constexpr std::uint64_t own_moments = 0x303;

// When the answer comes, if nothing holds it up.
std::int64_t momentOf(const Script& script, const RequestScript& request, bool connects) {
    const HostScript host = script.host(request.host);
    return request.at + (connects ? host.connectDelay : 0) + script.reply(request.exchange, 0).delay;
}

}  // namespace

void addCalm(Script& script, std::uint64_t seed) {
    Random random(seed * 31 + own_calm);
    if (random.oneIn(3)) script.world.calmAt = random.between(1, 3'000'000);
}

void addMoments(Script& script, std::uint64_t seed) {
    Random random(seed * 31 + own_moments);
    if (!random.oneIn(2)) return;
    for (ReplyScript& reply : script.replies) {
        if (reply.cut != Cut::none && random.oneIn(4)) reply.cutAt = 0;
    }
    for (const RequestScript& request : script.requests) {
        if (!random.oneIn(4)) continue;
        const Deed deed = random.oneIn(3) ? Deed::settle : Deed::cancel;
        script.actions.push_back({momentOf(script, request, !random.oneIn(4)), deed, request.id});
    }
}

}  // namespace kel::http::simulation
