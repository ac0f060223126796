// SPDX-License-Identifier: MIT
#include "GeneratorProxies.h"

#include <array>
#include <utility>

#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t millisecond = 1000;
constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t minute = 60 * second;
constexpr std::uint64_t own_numbers = 0x70726F786965;

class OrderGenerator {
 public:
    OrderGenerator(Script& script, std::uint64_t seed) : script_(script), random_(seed * 63 + own_numbers) {}

    void add() {
        if (!random_.oneIn(12)) return;
        clear();
        proxies_ = random_.between(2, 4);
        for (std::int64_t id = 1; id <= proxies_; ++id) script_.proxies.push_back(proxy(id));
        for (std::int64_t id = 0; id < hosts; ++id) script_.hosts.push_back(host(id));
        // One after the other at once, after a while, or after so long that failures may be forgotten.
        pace_ = random_.below(4);
        const std::int64_t requests = random_.between(3, 7);
        for (std::int64_t id = 0; id < requests; ++id) addRequest(id);
        if (random_.oneIn(4)) addWait();
        script_.world.patience += at_ / second;
        if (random_.oneIn(6)) disturb();
    }

 private:
    static constexpr std::int64_t hosts = 3;

    void clear() {
        script_.world.proxyMode = ProxyMode::list;
        script_.world.calmAt = 0;
        script_.hosts.clear();
        script_.replies.clear();
        script_.requests.clear();
        script_.actions.clear();
        script_.proxies.clear();
        script_.troubles.clear();
    }

    ProxyScript proxy(std::int64_t id) {
        ProxyScript proxy;
        proxy.id = id;
        proxy.connectDelay = random_.between(1, 50 * millisecond);
        proxy.delay = random_.between(0, 50 * millisecond);
        if (random_.oneIn(4)) {
            proxy.challenge = Challenge::basic;
            proxy.credentials = random_.oneIn(5) ? 2 : 1;
            proxy.closes = random_.below(2);
        }
        if (random_.oneIn(id == 1 ? 2 : 4)) breakDown(proxy);
        return proxy;
    }

    void breakDown(ProxyScript& proxy) {
        static constexpr std::array<std::int64_t, 3> refusals = {403, 502, 407};
        switch (random_.below(4)) {
            case 0:
                proxy.connect = Connect::refuse;
                return;
            case 1:
                proxy.connect = Connect::silent;
                return;
            case 2:
                proxy.status = refusals[static_cast<std::size_t>(random_.below(refusals.size()))];
                proxy.body = random_.between(0, 100);
                return;
            default:
                proxy.cut = static_cast<Cut>(random_.between(1, 3));
                proxy.cutAt = random_.between(0, 20);
        }
    }

    // The last one is hardly to be had: whoever wants it finds no proxy that works.
    HostScript host(std::int64_t id) {
        HostScript host;
        host.id = id;
        host.connectDelay = random_.between(0, 50 * millisecond);
        if (random_.oneIn(4)) host.answers = 1;
        if (random_.oneIn(6)) host.tls = 1;
        if (id + 1 == hosts && random_.oneIn(2)) host.connect = Connect::refuse;
        return host;
    }

    void addRequest(std::int64_t id) {
        RequestScript request;
        request.id = id;
        request.client = random_.below(2);
        request.host = random_.oneIn(5) ? hosts - 1 : random_.below(hosts - 1);
        request.exchange = id * 10;
        request.timeout = random_.between(400, 2000);
        request.handle = random_.below(2);
        if (random_.oneIn(3)) {
            request.verb = Verb::POST;
            request.body = random_.between(1, 500);
        }
        if (id > 0) begin(request);
        request.at = at_;
        request.proxies = list();
        addReplies(request);
        script_.requests.push_back(request);
    }

    void begin(RequestScript& request) {
        if (pace_ < 2) {
            request.after = request.id - 1;
        } else if (pace_ == 2) {
            at_ += random_.between(9, 30) * second;
        } else {
            at_ += random_.between(1, 40) * minute;
        }
    }

    // All of them or some, in any order.
    std::int64_t list() {
        std::array<std::int64_t, 4> order = {1, 2, 3, 4};
        for (std::int64_t place = proxies_ - 1; place > 0; --place) {
            std::swap(order[static_cast<std::size_t>(place)],
                      order[static_cast<std::size_t>(random_.below(place + 1))]);
        }
        if (random_.oneIn(3)) order = {1, 2, 3, 4};
        const std::int64_t count = random_.oneIn(3) ? random_.between(1, proxies_) : proxies_;
        std::int64_t digits = 0;
        for (std::int64_t place = 0; place < count; ++place)
            digits = digits * 10 + order[static_cast<std::size_t>(place)];
        return digits;
    }

    void addReplies(const RequestScript& request) {
        ReplyScript reply;
        reply.exchange = request.exchange;
        reply.delay = random_.between(0, 50 * millisecond);
        reply.body = random_.between(0, 2000);
        if (random_.oneIn(3)) sayNothing(reply);
        if (random_.oneIn(5)) reply.status = random_.oneIn(2) ? 404 : 500;
        if (random_.oneIn(8)) {
            reply.status = 302;
            reply.location = request.exchange + 1;
            reply.locationHost = random_.below(hosts);
        }
        script_.replies.push_back(reply);
    }

    // Not to the first ones who ask: what fails for this request may work for the next one.
    void sayNothing(ReplyScript reply) {
        reply.cut = static_cast<Cut>(random_.between(1, 3));
        reply.cutAt = 0;
        for (std::int64_t count = random_.between(1, 2); count > 0; --count) script_.replies.push_back(reply);
    }

    // While the first one waits for a proxy that says nothing, the second one finds out about what would be tried next.
    void addWait() {
        static constexpr std::array<std::int64_t, 5> all = {0, 1, 12, 123, 1234};
        script_.proxies[0].connect = Connect::silent;
        if (random_.oneIn(2)) script_.proxies[1].connect = Connect::refuse;
        RequestScript& first = script_.requests[0];
        first.timeout = random_.between(1000, 3000);
        first.proxies = all[static_cast<std::size_t>(proxies_)];
        RequestScript& other = script_.requests[1];
        other.after = -1;
        other.at = random_.between(1, 100 * millisecond);
        other.timeout = 400;
        other.proxies = 2;
        if (script_.requests[2].after >= 0) script_.requests[2].after = first.id;
    }

    // One comes beside another, or is cancelled.
    void disturb() {
        const std::int64_t last = static_cast<std::int64_t>(script_.requests.size()) - 1;
        RequestScript& one = script_.requests[static_cast<std::size_t>(random_.between(1, last))];
        if (random_.oneIn(2)) {
            one.after = -1;
            one.at = random_.between(0, 100 * millisecond);
            return;
        }
        ActionScript action;
        action.request = one.id;
        action.at = one.at + random_.between(0, second);
        script_.actions.push_back(action);
    }

    Script& script_;
    Random random_;
    std::int64_t proxies_ = 0;
    std::int64_t pace_ = 0;
    std::int64_t at_ = 0;
};

}  // namespace

void addProxyOrders(Script& script, std::uint64_t seed) {
    OrderGenerator(script, seed).add();
}

}  // namespace kel::http::simulation
