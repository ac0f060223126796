// SPDX-License-Identifier: MIT
// Worlds from seeds. Each seed does without a random half of the kinds of trouble: what always happens hides the rest.
#include <algorithm>

#include "GeneratorCrowd.h"
#include "GeneratorKin.h"
#include "GeneratorMoments.h"
#include "GeneratorNetwork.h"
#include "GeneratorParts.h"
#include "GeneratorProxies.h"
#include "Script.h"
#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t millisecond = 1000;
constexpr std::int64_t second = 1'000'000;

class Generator {
 public:
    explicit Generator(std::uint64_t seed) : random_(seed), switches_(random_.next()) {}

    Script script() {
        Script script;
        script.world.order = static_cast<std::int64_t>(random_.next() >> 1U);
        const std::int64_t hosts = random_.between(1, 3);
        for (std::int64_t id = 0; id < hosts; ++id) script.hosts.push_back(host(id));
        const std::int64_t requests = random_.between(1, 8);
        for (std::int64_t id = 0; id < requests; ++id) addRequest(script, id, hosts);
        return script;
    }

 private:
    // Whether this kind of trouble exists in this world, and one in so many times now.
    bool trouble(unsigned kind, std::int64_t one_in) {
        return ((switches_ >> kind) & 1U) != 0 && random_.oneIn(one_in);
    }

    HostScript host(std::int64_t id) {
        HostScript host;
        host.id = id;
        host.connectDelay = random_.between(0, 200 * millisecond);
        if (trouble(0, 8)) host.connect = random_.oneIn(2) ? Connect::refuse : Connect::silent;
        if (trouble(1, 3)) host.answers = random_.between(1, 3);
        if (trouble(2, 3)) host.idle = random_.between(1, 300 * millisecond);
        if (trouble(3, 3)) host.mostReceived = random_.between(1, 3000);
        if (trouble(4, 3)) host.mostSent = random_.between(1, 200);
        if (trouble(5, 3)) host.interrupted = random_.between(2, 5);
        if (trouble(6, 2)) {
            host.named = 1;
            host.nameDelay = random_.oneIn(2) ? 0 : random_.between(0, 4 * second);
            if (random_.oneIn(5)) host.nameFails = 1;
        }
        return host;
    }

    std::int64_t size() {
        switch (random_.below(5)) {
            case 0:
                return 0;
            case 1:
                return random_.between(1, 20);
            case 2:
                return random_.between(15000, 70000);
            default:
                return random_.between(1, 3000);
        }
    }

    ReplyScript reply(std::int64_t exchange) {
        static constexpr std::array<std::int64_t, 10> statuses = {200, 200, 200, 200, 204, 304, 404, 500, 401, 206};
        ReplyScript reply;
        reply.exchange = exchange;
        reply.status = statuses[static_cast<std::size_t>(random_.below(statuses.size()))];
        reply.framing = static_cast<Framing>(random_.below(3));
        reply.body = size();
        reply.delay = random_.between(0, 100 * millisecond);
        if (trouble(10, 2)) reply.piece = random_.oneIn(3) ? random_.between(1, 20) : random_.between(1, 5000);
        if (reply.piece != 0) {
            reply.gap = random_.oneIn(4) ? random_.between(0, second) : random_.between(0, 2 * millisecond);
            if (reply.body / reply.piece > 300) reply.piece = reply.body / 300;
        }
        if (trouble(11, 4)) reply.interims = random_.between(1, 3);
        if (trouble(12, 4)) reply.headers = random_.between(1, 40);
        if (trouble(13, 3)) reply.trailers = random_.between(1, 3);
        if (trouble(14, 4)) cut(reply);
        return reply;
    }

    void cut(ReplyScript& reply) {
        reply.cut = static_cast<Cut>(random_.between(1, 3));
        reply.cutAt = random_.between(0, 200 + reply.body);
    }

    void addReplies(Script& script, std::int64_t exchange, std::int64_t hosts, std::int64_t hops) {
        for (std::int64_t turn = random_.between(1, 2); turn > 0; --turn) {
            ReplyScript one = reply(exchange);
            if (hops > 0) {
                one.status = random_.oneIn(2) ? 302 : 307;
                one.location = exchange + 1;
                one.locationHost = random_.below(hosts);
            }
            script.replies.push_back(one);
        }
        if (hops > 0) addReplies(script, exchange + 1, hosts, hops - 1);
    }

    void addRequest(Script& script, std::int64_t id, std::int64_t hosts) {
        RequestScript request;
        request.id = id;
        request.at = random_.between(0, 2 * second);
        request.client = random_.below(2);
        request.host = random_.below(hosts);
        request.exchange = id * 10;
        addReplies(script, request.exchange, hosts, trouble(20, 3) ? random_.between(1, 6) : 0);
        if (trouble(21, 2)) request.verb = static_cast<Verb>(random_.below(5));
        if (request.verb != Verb::GET) request.body = size();
        if (!random_.oneIn(3)) request.timeout = random_.between(1, 20000);
        if (trouble(22, 4)) request.sizeLimit = size();
        if (trouble(23, 4)) request.callerRedirects = 1;
        if (trouble(24, 6)) request.freshState = 1;
        if (trouble(25, 3)) request.handle = 1;
        script.requests.push_back(request);
        addActions(script, request);
    }

    void addActions(Script& script, const RequestScript& request) {
        if (trouble(30, 4))
            script.actions.push_back({request.at + random_.between(0, 5 * second), Deed::cancel, request.id});
        if (trouble(31, 4)) {
            const std::int64_t pause = request.at + random_.between(0, 2 * second);
            script.actions.push_back({pause, Deed::pause, request.id});
            script.actions.push_back({pause + random_.between(0, 4 * second), Deed::resume, request.id});
        }
        if (trouble(32, 10))
            script.actions.push_back({request.at + random_.between(0, second), Deed::settle, request.id});
    }

    Random random_;
    const std::uint64_t switches_;
};

}  // namespace

Script generate(std::uint64_t seed) {
    Script script = Generator(seed).script();
    addNetworkTroubles(script, seed);
    addCallers(script, seed);
    addCalm(script, seed);
    addMoments(script, seed);
    addProxyOrders(script, seed);
    addKin(script, seed);
    addCrowd(script, seed);
    return script;
}

}  // namespace kel::http::simulation
