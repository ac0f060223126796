// SPDX-License-Identifier: MIT
#include "model/Known.h"

#include <algorithm>
#include <set>

namespace kel::http::simulation {
namespace {

using Names = std::set<std::string_view>;

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

template <typename Value>
std::int64_t numberOf(const Value& value) {
    return static_cast<std::int64_t>(value);
}

// Fields that are not known have their defaults.
template <typename Record>
bool isKnownRecord(const Record& record, const Names& names) {
    Record usual;
    std::vector<std::int64_t> defaults;
    usual.visit([&](std::string_view, auto& value) { defaults.push_back(numberOf(value)); });
    Record shown = record;
    bool known = true;
    std::size_t field = 0;
    shown.visit([&](std::string_view name, auto& value) {
        if (numberOf(value) != defaults[field++] && names.count(name) == 0) known = false;
    });
    return known;
}

bool isKnownDeed(const ActionScript& action) {
    return action.deed <= Deed::remove && isKnownRecord(action, action_fields);
}

// Values that came later count as unknown, too.
bool isKnownHost(const HostScript& host) {
    return host.connect <= Connect::silent && isKnownRecord(host, host_fields);
}

bool isKnownReply(const ReplyScript& reply) {
    return reply.cut <= Cut::stall && reply.framing <= Framing::close && reply.lie <= Lie::garbage &&
           reply.challenge <= Challenge::both && isKnownRecord(reply, reply_fields);
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
    const bool world_known = isKnownRecord(script.world, world_fields) &&
                             std::all_of(script.hosts.begin(), script.hosts.end(), isKnownHost) &&
                             std::all_of(script.actions.begin(), script.actions.end(), isKnownDeed);
    std::set<std::int64_t> seen;
    return world_known && isKnownRecord(request, request_fields) && areRepliesKnown(script, request.exchange, seen);
}

}  // namespace kel::http::simulation
