// SPDX-License-Identifier: MIT
// Proxies in turn: which failed, which worked, and what requests made of that later.
#include "checks/ProxyRuns.h"
#include "checks/States.h"

namespace kel::http::simulation {
namespace {

constexpr Time half_an_hour = std::chrono::minutes(30);

template <typename Condition>
bool anyRun(const Scene& scene, ProxyMode mode, Condition condition) {
    if (scene.script.world.proxyMode != mode) return false;
    const std::vector<ProxyRun> runs = proxyRuns(scene);
    return std::any_of(runs.begin(), runs.end(),
                       [&](const ProxyRun& run) { return run.isClear && condition(run, runs); });
}

template <std::size_t place>
bool servedBy(const Scene& scene) {
    return anyRun(scene, ProxyMode::list, [](const ProxyRun& run, const auto&) {
        return run.journey->hasResponse() && run.turns.size() == place;
    });
}

bool failedIn(const ProxyRun& run, std::int64_t proxy) {
    return std::any_of(run.turns.begin(), run.turns.end(), [&](const ProxyTurn& turn) {
        return turn.proxy == proxy && (&turn != &run.turns.back() || !run.journey->hasResponse());
    });
}

bool workedIn(const ProxyRun& run, std::int64_t proxy) {
    return run.journey->hasResponse() && !run.turns.empty() && run.turns.back().proxy == proxy;
}

// The run before this one that tried that proxy; null: none.
const ProxyRun* lastWith(std::int64_t proxy, const ProxyRun& run, const std::vector<ProxyRun>& runs) {
    const ProxyRun* last = nullptr;
    for (const ProxyRun& one : runs) {
        if (one.isClear && one.begin < run.begin && (failedIn(one, proxy) || workedIn(one, proxy))) last = &one;
    }
    return last;
}

bool sinceFailure(const ProxyRun& run, const std::vector<ProxyRun>& runs, std::int64_t proxy, bool is_long) {
    const ProxyRun* const last = lastWith(proxy, run, runs);
    return last != nullptr && failedIn(*last, proxy) && (run.begin - last->end > half_an_hour) == is_long;
}

bool passedOver(const ProxyRun& run, const std::vector<ProxyRun>& runs) {
    return run.list.size() > 1 && !run.turns.empty() && run.turns.front().proxy != run.list.front() &&
           sinceFailure(run, runs, run.list.front(), false);
}

bool triedInTheEnd(const ProxyRun& run, const std::vector<ProxyRun>& runs) {
    return passedOver(run, runs) && run.turns.size() > 1 && run.turns.back().proxy == run.list.front();
}

// It failed, worked when there was no better one, and is the first one again.
bool cameBack(const ProxyRun& run, const std::vector<ProxyRun>& runs) {
    if (run.list.size() < 2 || run.turns.empty() || run.turns.front().proxy != run.list.front()) return false;
    const ProxyRun* const worked = lastWith(run.list.front(), run, runs);
    return worked != nullptr && workedIn(*worked, run.list.front()) &&
           sinceFailure(*worked, runs, run.list.front(), false);
}

bool isForgiven(const ProxyRun& run, const std::vector<ProxyRun>& runs) {
    return run.list.size() > 1 && !run.turns.empty() && run.turns.front().proxy == run.list.front() &&
           sinceFailure(run, runs, run.list.front(), true);
}

template <bool (*condition)(const ProxyRun&, const std::vector<ProxyRun>&)>
bool inOrder(const Scene& scene) {
    return anyRun(scene, ProxyMode::list, condition);
}

bool allFailed(const Scene& scene) {
    return anyRun(scene, ProxyMode::list, [](const ProxyRun& run, const auto&) {
        return run.list.size() > 1 && run.turns.size() == run.list.size() && !run.journey->hasResponse();
    });
}

// While it waited somebody else found out that the next one in its list was of no use.
bool warnedByAnother(const ProxyRun& run, const std::vector<ProxyRun>& runs) {
    return run.list.size() > 2 && run.turns.size() > 1 && run.turns[0].proxy == run.list[0] &&
           run.turns[1].proxy == run.list[2] && std::any_of(runs.begin(), runs.end(), [&run](const ProxyRun& other) {
               return run.begin < other.begin && other.end < run.waitsUntil && failedIn(other, run.list[1]);
           });
}

bool timedOutThenServed(const Scene& scene) {
    return anyRun(scene, ProxyMode::list, [](const ProxyRun& run, const auto&) {
        const Time limit = std::chrono::milliseconds(run.journey->request.timeout);
        return run.journey->hasResponse() && run.turns.size() > 1 && limit > Time(0) &&
               run.turns[1].at - run.turns[0].at >= limit;
    });
}

// A server had it from more than one proxy.
bool broughtTwice(const Scene& scene) {
    return scene.anyVisit([](const Journey& journey, const Visit& visit) {
        const Arrival& first = *journey.visits.front().arrival;
        return first.proxy != 0 && visit.arrival->proxy != first.proxy && visit.arrival->bodySize > 0;
    });
}

bool usedAgain(const Scene& scene) {
    return scene.anyVisit([&](const Journey&, const Visit& visit) {
        const Arrival& own = *visit.arrival;
        return own.proxy != 0 &&
               std::any_of(scene.seen.arrivals.begin(), scene.seen.arrivals.end(), [&own](const Arrival& other) {
                   return other.connection == own.connection && other.request != own.request && other.at < own.at;
               });
    });
}

template <std::int64_t status>
bool answeredWithCredentials(const Scene& scene) {
    bool was_asked = false;
    for (const ProxyAsk& ask : scene.seen.proxyAsks) {
        if (was_asked && ask.withCredentials && ask.status == status) return true;
        was_asked = was_asked || (ask.status == 407 && !ask.withCredentials);
    }
    return false;
}

bool redirected(const Scene& scene) {
    return scene.anyVisit([](const Journey& journey, const Visit& visit) {
        return visit.arrival->proxy != 0 && visit.arrival->exchange != journey.request.exchange &&
               journey.hasResponse();
    });
}

bool servedByOwn(const Scene& scene) {
    return anyRun(scene, ProxyMode::manual,
                  [](const ProxyRun& run, const auto&) { return run.journey->hasResponse() && !run.turns.empty(); });
}

bool brokenOff(const Scene& scene) {
    return std::any_of(scene.seen.proxyAsks.begin(), scene.seen.proxyAsks.end(), [&scene](const ProxyAsk& ask) {
        return scene.script.proxy(ask.proxy).cut != Cut::none && scene.script.proxy(ask.proxy).cutAt > 0;
    });
}

}  // namespace

std::vector<State> statesOfProxies() {
    return {
        {"served by the first proxy", servedBy<1>},
        {"served by the second proxy", servedBy<2>},
        {"served by the third proxy", servedBy<3>},
        {"served by the engine's own proxy", servedByOwn},
        {"failed proxy tried last by the next request", inOrder<passedOver>},
        {"failed proxy tried after the others had failed as well", inOrder<triedInTheEnd>},
        {"a proxy off the list again after it worked", inOrder<cameBack>},
        {"a proxy passed over that failed for another meanwhile", inOrder<warnedByAnother>},
        {"a failed proxy first again after half an hour", inOrder<isForgiven>},
        {"all proxies of a list failed", allFailed},
        {"next proxy tried when the limit was over", timedOutThenServed},
        {"a body brought to a server by a second proxy", broughtTwice},
        {"a tunnel used again", usedAgain},
        {"a redirect followed through proxies", redirected},
        {"a proxy's answer broke off", brokenOff},
        {"proxy asked for credentials and got them", answeredWithCredentials<200>},
        {"proxy asked for credentials and got wrong ones", answeredWithCredentials<407>},
    };
}

}  // namespace kel::http::simulation
