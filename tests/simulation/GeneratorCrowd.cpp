// SPDX-License-Identifier: MIT
#include "GeneratorCrowd.h"

#include <algorithm>

#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::uint64_t own_crowd = 0xC20D;
constexpr std::int64_t second = 1'000'000;

ReplyScript silence(std::int64_t exchange) {
    ReplyScript reply;
    reply.exchange = exchange;
    reply.cut = Cut::stall;
    return reply;
}

std::int64_t freeRequest(const Script& script) {
    std::int64_t next = 0;
    for (const RequestScript& request : script.requests) next = std::max(next, request.id + 1);
    return next;
}

}  // namespace

// They come before the others or among them, and go one by one: the engine changes over and back.
void addCrowd(Script& script, std::uint64_t seed) {
    Random random(seed * 31 + own_crowd);
    if (!random.oneIn(25)) return;
    HostScript host;
    host.id = static_cast<std::int64_t>(script.hosts.size());
    const std::int64_t first = freeRequest(script);
    const std::int64_t count = random.between(10, 30);
    for (std::int64_t id = first; id < first + count; ++id) {
        RequestScript request;
        request.id = id;
        request.at = random.between(0, second);
        request.host = host.id;
        request.exchange = id * 10;
        if (random.oneIn(4)) request.timeout = random.between(1, 3000);
        script.replies.push_back(silence(request.exchange));
        script.requests.push_back(request);
        script.actions.push_back({random.between(second, 4 * second), Deed::cancel, id});
    }
    script.hosts.push_back(host);
}

}  // namespace kel::http::simulation
