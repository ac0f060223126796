// SPDX-License-Identifier: MIT
#include "checks/Plain.h"

#include <algorithm>

#include "model/Murky.h"
#include "parties/Answer.h"

namespace kel::http::simulation {
namespace {

// Longer ones may not be through when the world ends.
constexpr Time slow = std::chrono::seconds(60);

bool isPlainHost(const HostScript& host, Nuisance nuisance) {
    if (nuisance == Nuisance::none && host.headOnly != 0) return false;
    return host.connect == Connect::accept && host.named == 0 && host.deadAddresses == 0 && host.tls == 0 &&
           host.idle == 0 && host.answers == 0;
}

bool isPlainReply(const ReplyScript& reply) {
    return reply.cut == Cut::none && reply.lie == Lie::none && reply.challenge == Challenge::none &&
           reply.location < 0 && reply.status >= 200 && lengthOf(reply, 0) < slow;
}

bool isPlainRequest(const Script& script, const RequestScript& request) {
    return !isRefused(request) && request.bodyFile < 2 && request.sizeLimit < 0 && request.speedLimit == 0 &&
           request.download < 3 && request.login == Login::none &&
           (request.proxies == 0 || script.world.proxyMode == ProxyMode::off);
}

bool isDisturbance(const RequestScript& request, const ActionScript& action) {
    const bool is_odd = action.deed == Deed::rerun || action.deed == Deed::grow || action.deed == Deed::shrink ||
                        action.deed == Deed::remove;
    return is_odd && action.request == request.id;
}

}  // namespace

Time lengthOf(const ReplyScript& reply, std::size_t arrival) {
    if (reply.piece <= 0 || reply.gap <= 0) return Time(reply.delay);
    const auto size = static_cast<std::int64_t>(answerBytes(reply, arrival, {}).size());
    return Time(reply.delay + std::max<std::int64_t>(size - 1, 0) / reply.piece * reply.gap);
}

bool isPlain(const Script& script, const RequestScript& request, Nuisance nuisance) {
    const bool is_network_plain =
        std::all_of(script.troubles.begin(), script.troubles.end(), [nuisance](const TroubleScript& trouble) {
            return nuisance == Nuisance::resets && trouble.kind == Trouble::reset;
        });
    return is_network_plain && isPlainRequest(script, request) && isPlainHost(script.host(request.host), nuisance) &&
           std::none_of(script.actions.begin(), script.actions.end(),
                        [&request](const ActionScript& action) { return isDisturbance(request, action); }) &&
           std::all_of(script.replies.begin(), script.replies.end(), [&request](const ReplyScript& reply) {
               // What is left over of another's answer may be taken for the beginning of its own.
               return reply.exchange == request.exchange ? isPlainReply(reply) : reply.lie != Lie::shorter;
           });
}

}  // namespace kel::http::simulation
