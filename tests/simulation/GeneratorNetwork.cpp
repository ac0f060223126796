// SPDX-License-Identifier: MIT
#include "GeneratorNetwork.h"

#include <algorithm>

#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t millisecond = 1000;
constexpr std::int64_t second = 1'000'000;
constexpr std::uint64_t own_numbers = 0x6E6574776F726BU;

class NetworkGenerator {
 public:
    NetworkGenerator(Script& script, std::uint64_t seed)
        : script_(script), random_(seed * 2 + own_numbers), switches_(random_.next()) {}

    void add() {
        if (random_.oneIn(2)) return;
        if (trouble(0, 2)) addProxies();
        for (HostScript& host : script_.hosts) addTo(host);
        for (ReplyScript& reply : script_.replies) addTo(reply);
        for (RequestScript& request : script_.requests) addTo(request);
        for (int number = 0; number < 3; ++number) addTrouble(number);
    }

 private:
    bool trouble(unsigned kind, std::int64_t one_in) {
        return ((switches_ >> kind) & 1U) != 0 && random_.oneIn(one_in);
    }

    void addProxies() {
        script_.world.proxyMode = random_.oneIn(3) ? ProxyMode::manual : ProxyMode::list;
        const std::int64_t count = random_.between(1, 3);
        for (std::int64_t id = 1; id <= count; ++id) script_.proxies.push_back(proxy(id));
        for (RequestScript& request : script_.requests) {
            if (random_.oneIn(4)) continue;
            for (std::int64_t id = 1; id <= count; ++id) {
                if (request.proxies == 0 || random_.oneIn(2)) request.proxies = request.proxies * 10 + id;
            }
            if (random_.oneIn(2)) request.proxies = reversed(request.proxies);
        }
    }

    static std::int64_t reversed(std::int64_t number) {
        std::int64_t result = 0;
        for (; number > 0; number /= 10) result = result * 10 + number % 10;
        return result;
    }

    ProxyScript proxy(std::int64_t id) {
        static constexpr std::array<std::int64_t, 4> refusals = {403, 407, 502, 500};
        ProxyScript proxy;
        proxy.id = id;
        proxy.connectDelay = random_.between(0, 100 * millisecond);
        proxy.delay = random_.between(0, 100 * millisecond);
        if (trouble(1, 4)) proxy.connect = random_.oneIn(2) ? Connect::refuse : Connect::silent;
        if (trouble(2, 4)) proxy.status = refusals[static_cast<std::size_t>(random_.below(refusals.size()))];
        if (trouble(3, 5)) proxy.headers = random_.oneIn(3) ? random_.between(1990, 2100) : random_.between(1, 50);
        if (proxy.status != 200) proxy.body = random_.between(0, 3000);
        if (trouble(4, 2)) proxy.challenge = Challenge::basic;
        if (trouble(4, 3)) proxy.closes = 1;
        if (trouble(4, 1)) proxy.credentials = random_.between(0, 5) % 3;
        if (trouble(5, 4)) {
            proxy.cut = static_cast<Cut>(random_.between(1, 3));
            proxy.cutAt = random_.between(0, 80);
        }
        return proxy;
    }

    void addTo(HostScript& host) {
        if (trouble(15, 2)) addTls(host);
        if (!trouble(10, 3)) return;
        host.named = 1;
        host.deadAddresses = random_.between(1, 3);
        if (random_.oneIn(2)) host.deadConnect = Connect::silent;
    }

    void addTls(HostScript& host) {
        host.tls = 1;
        // A handshake has some 2 KB each way.
        if (host.mostReceived > 0) host.mostReceived += 20;
        if (random_.oneIn(8)) host.tlsWrong = 1;
        if (random_.oneIn(4)) {
            host.tlsCut = static_cast<Cut>(random_.between(1, 3));
            host.tlsCutAt = random_.between(0, 4000);
        }
    }

    // Long headers, a byte at a time, would make a long world.
    bool isRoomy() const {
        return std::all_of(script_.hosts.begin(), script_.hosts.end(),
                           [](const HostScript& host) { return host.mostReceived == 0 || host.mostReceived > 500; });
    }

    void addTo(ReplyScript& reply) {
        static constexpr std::array<std::int64_t, 3> statuses = {100, 102, 103};
        if (trouble(11, 2)) reply.interimStatus = statuses[static_cast<std::size_t>(random_.below(statuses.size()))];
        if (trouble(12, 6)) reply.lie = static_cast<Lie>(random_.between(1, 7));
        const bool is_long = reply.lie == Lie::headers || reply.lie == Lie::lines;
        if (is_long && !isRoomy()) reply.lie = Lie::none;
        if (is_long && reply.piece > 0) reply.piece = std::max<std::int64_t>(reply.piece, 3000);
        if (trouble(13, 3)) reply.challenge = static_cast<Challenge>(random_.between(1, 3));
        if (trouble(14, 2)) reply.range = static_cast<Range>(random_.between(1, 3));
    }

    void addTo(RequestScript& request) {
        if (trouble(13, 1)) request.login = static_cast<Login>(random_.between(0, 3));
    }

    void addTrouble(int number) {
        static constexpr std::array<std::int64_t, 4> clocks = {0, 1'000'000'000, 1'700'003'600, 2'100'000'000};
        if (!trouble(20 + static_cast<unsigned>(number), 2)) return;
        TroubleScript one;
        one.kind = static_cast<Trouble>(random_.below(6));
        one.at = random_.between(0, 4 * second);
        one.until = one.at + random_.between(0, 5 * second);
        const auto hosts = static_cast<std::int64_t>(script_.hosts.size());
        one.host = one.kind == Trouble::moves ? random_.below(hosts) : random_.between(-1, hosts - 1);
        if (one.kind == Trouble::moves) one.value = random_.below(hosts);
        if (one.kind == Trouble::wallClock) one.value = clocks[static_cast<std::size_t>(random_.below(clocks.size()))];
        script_.troubles.push_back(one);
    }

    Script& script_;
    Random random_;
    const std::uint64_t switches_;
};

}  // namespace

void addNetworkTroubles(Script& script, std::uint64_t seed) {
    NetworkGenerator(script, seed).add();
}

}  // namespace kel::http::simulation
