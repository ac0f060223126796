// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "checks/Scene.h"

namespace kel::http::simulation {

// Whether a server's answer came back through a proxy.
enum class Answered : std::uint8_t { no, maybe, yes };

// A proxy's turn at a request: connections to it, and what it brought to servers.
struct ProxyTurn {
    std::int64_t proxy = 0;
    // The first sign of it.
    Time at{0};
    Answered answered = Answered::no;
};

// What a request did that has proxies.
struct ProxyRun {
    const Journey* journey = nullptr;
    // Those that it may try, in its caller's order.
    std::vector<std::int64_t> list;
    Time begin{0};
    // Never: it can not be told when it no longer went anywhere.
    Time end = Never;
    // It waits for a proxy until then that says nothing, and goes nowhere meanwhile, whatever others do; `begin`: it does not.
    Time waitsUntil{0};
    // It came to its end by itself, and can be told from others: the turns are its own, and all there were.
    bool isClear = false;
    std::vector<ProxyTurn> turns;

    bool mayTry(std::int64_t proxy) const;
};

// Those of a world that have started, in the order of their beginnings; none without proxies.
std::vector<ProxyRun> proxyRuns(const Scene& scene);

}  // namespace kel::http::simulation
