// SPDX-License-Identifier: MIT
#include "checks/Plain.h"

#include <algorithm>
#include <set>

#include "model/Fields.h"
#include "model/Murky.h"
#include "parties/Answer.h"

namespace kel::http::simulation {
namespace {

// Longer ones may not be through when the world ends.
constexpr Time slow = std::chrono::seconds(60);

// Fields that may have any value; all others have their defaults, those of kinds of trouble to come included.
const Names world_fields = {"order", "posting", "executors", "digest", "proxyMode", "proxy", "calmAt"};
const Names host_fields = {"id", "connectDelay", "mostReceived", "mostSent", "interrupted", "headOnly"};
const Names reply_fields = {"exchange", "status",   "framing", "body",          "interims",
                            "headers",  "trailers", "cookies", "locationHost",  "delay",
                            "piece",    "gap",      "cutAt",   "interimStatus", "range"};
const Names request_fields = {
    "id",         "at",       "client",  "host",    "exchange",    "verb", "body", "timeout",   "callerRedirects",
    "freshState", "download", "handle",  "present", "keepPartial", "own",  "form", "formFiles", "bodyFile",
    "cookies",    "timing",   "headers", "after",   "proxies"};
const std::set<Deed> deeds = {Deed::cancel,        Deed::pause, Deed::resume, Deed::settle,     Deed::dropClient,
                              Deed::destroyEngine, Deed::queue, Deed::listen, Deed::endExecutor};

bool isPlainHost(const HostScript& host, Nuisance nuisance) {
    return isUsualBut(host_fields, host) && (host.headOnly == 0 || nuisance == Nuisance::resets);
}

bool isPlainReply(const ReplyScript& reply) {
    return isUsualBut(reply_fields, reply) && reply.status >= 200 && lengthOf(reply, 0) < slow;
}

bool isPlainRequest(const Script& script, const RequestScript& request) {
    return isUsualBut(request_fields, request) && !isRefused(request) && request.bodyFile < 2 && request.download < 3 &&
           (request.proxies == 0 || script.world.proxyMode == ProxyMode::off);
}

bool isPlainNetwork(const Script& script, Nuisance nuisance) {
    return std::all_of(script.troubles.begin(), script.troubles.end(), [nuisance](const TroubleScript& trouble) {
        return nuisance == Nuisance::resets && trouble.kind == Trouble::reset;
    });
}

}  // namespace

Time lengthOf(const ReplyScript& reply, std::size_t arrival) {
    if (reply.piece <= 0 || reply.gap <= 0) return Time(reply.delay);
    const auto size = static_cast<std::int64_t>(answerBytes(reply, arrival, {}).size());
    return Time(reply.delay + std::max<std::int64_t>(size - 1, 0) / reply.piece * reply.gap);
}

bool isPlain(const Script& script, const RequestScript& request, Nuisance nuisance) {
    return isUsualBut(world_fields, script.world) && isPlainNetwork(script, nuisance) &&
           isPlainRequest(script, request) && isPlainHost(script.host(request.host), nuisance) &&
           std::all_of(script.actions.begin(), script.actions.end(),
                       [&request](const ActionScript& action) {
                           return action.request != request.id || deeds.count(action.deed) != 0;
                       }) &&
           std::all_of(script.replies.begin(), script.replies.end(), [&request](const ReplyScript& reply) {
               // What is left over of another's answer may be taken for the beginning of its own.
               return reply.exchange == request.exchange ? isPlainReply(reply) : reply.lie != Lie::shorter;
           });
}

}  // namespace kel::http::simulation
