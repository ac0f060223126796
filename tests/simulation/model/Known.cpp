// SPDX-License-Identifier: MIT
#include "model/Known.h"

#include <algorithm>
#include <set>

#include "model/Fields.h"

namespace kel::http::simulation {
namespace {

const Names world_fields = {"order", "posting", "executors", "digest", "proxyMode", "proxy", "calmAt"};
const Names host_fields = {"id",          "connect",     "connectDelay", "answers",   "idle",      "mostReceived",
                           "mostSent",    "interrupted", "named",        "nameDelay", "nameFails", "deadAddresses",
                           "deadConnect", "tls",         "tlsCutAt",     "tlsCut",    "tlsWrong"};
const Names reply_fields = {"exchange", "status",        "framing", "body",      "interims", "headers", "trailers",
                            "location", "locationHost",  "delay",   "piece",     "gap",      "cut",     "cutAt",
                            "cookies",  "interimStatus", "lie",     "challenge", "range"};
const Names request_fields = {"id",         "at",       "client",    "host",      "exchange",
                              "verb",       "body",     "timeout",   "sizeLimit", "callerRedirects",
                              "freshState", "download", "handle",    "present",   "keepPartial",
                              "own",        "form",     "formFiles", "bodyFile",  "cookies",
                              "speedLimit", "timing",   "headers",   "badUrl",    "after",
                              "proxies",    "login"};
const Names action_fields = {"at", "deed", "request", "when", "whose"};

bool isKnownDeed(const ActionScript& action) {
    return action.deed <= Deed::remove && isUsualBut(action_fields, action);
}

// Values that came later count as unknown, too.
bool isKnownHost(const HostScript& host) {
    return host.connect <= Connect::silent && isUsualBut(host_fields, host);
}

bool isKnownReply(const ReplyScript& reply) {
    return reply.cut <= Cut::stall && reply.framing <= Framing::close && reply.lie <= Lie::garbage &&
           reply.challenge <= Challenge::both && isUsualBut(reply_fields, reply);
}

// Those that redirects may lead to as well. Who shares a host with them may meet their connections.
bool areRepliesKnown(const Script& script, std::int64_t exchange, std::set<std::int64_t>& seen) {
    if (!seen.insert(exchange).second) return true;
    return std::all_of(script.replies.begin(), script.replies.end(), [&](const ReplyScript& reply) {
        if (reply.exchange != exchange) return true;
        return isKnownReply(reply) && (reply.location < 0 || areRepliesKnown(script, reply.location, seen));
    });
}

}  // namespace

bool isKnown(const Script& script, const RequestScript& request) {
    const bool world_known = isUsualBut(world_fields, script.world) &&
                             std::all_of(script.hosts.begin(), script.hosts.end(), isKnownHost) &&
                             std::all_of(script.actions.begin(), script.actions.end(), isKnownDeed);
    std::set<std::int64_t> seen;
    return world_known && isUsualBut(request_fields, request) && areRepliesKnown(script, request.exchange, seen);
}

}  // namespace kel::http::simulation
