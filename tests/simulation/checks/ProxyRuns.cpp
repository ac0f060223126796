// SPDX-License-Identifier: MIT
#include "checks/ProxyRuns.h"

#include <map>
#include <set>
#include <string>
#include <utility>

#include "model/Murky.h"

namespace kel::http::simulation {
namespace {

// What is under way when a request is cancelled.
constexpr Time margin = std::chrono::milliseconds(50);
constexpr Time millisecond = std::chrono::milliseconds(1);

std::vector<std::int64_t> listOf(const Script& script, const RequestScript& request) {
    if (script.world.proxyMode == ProxyMode::manual) return {script.world.proxy};
    std::vector<std::int64_t> list;
    for (const char id : std::to_string(request.proxies)) {
        if (id != '0') list.push_back(id - '0');
    }
    return list;
}

Time endOf(const Journey& journey) {
    if (journey.request.own != 0 || journey.told.orphaned) return Never;
    if (journey.outcome() != nullptr) return journey.outcome()->at;
    return journey.told.cancelled ? journey.told.cancelledAt + margin : Never;
}

bool isPlain(const RequestScript& request) {
    return request.own == 0 && request.download < 3 && request.speedLimit == 0 && !isRefused(request);
}

bool isUndisturbed(const Scene& scene, const ProxyRun& run) {
    const SeenRequest& told = run.journey->told;
    const std::int64_t id = run.journey->request.id;
    const bool is_paused = scene.anyDeed(
        [id](const Scene::Deed& deed) { return deed.seen.deed == Deed::pause && deed.seen.request == id; });
    const bool is_troubled =
        std::any_of(scene.script.troubles.begin(), scene.script.troubles.end(), [&](const TroubleScript& trouble) {
            return run.end == Never || Time(trouble.at) <= run.end - scene.seen.begin;
        });
    return told.outcomes.size() == 1 && !told.cancelled && !told.orphaned && !told.isChanged && !is_paused &&
           !is_troubled;
}

// Connections to all of them take a while: none is made in the very moment in which the request ends.
bool endsWithoutConnecting(const Script& script, const ProxyRun& run) {
    return std::all_of(run.list.begin(), run.list.end(),
                       [&script](std::int64_t proxy) { return script.proxy(proxy).connectDelay > 0; });
}

// Of those that come to their end by themselves nothing is hidden but what others do at the same time.
// They fail whoever uses that tunnel next before it shows in which one he is.
bool leavesBytesBehind(const Script& script) {
    return std::any_of(script.replies.begin(), script.replies.end(),
                       [](const ReplyScript& reply) { return reply.lie == Lie::shorter; });
}

bool couldBeClear(const Scene& scene, const ProxyRun& run) {
    const std::set<std::int64_t> different(run.list.begin(), run.list.end());
    return different.size() == run.list.size() && isPlain(run.journey->request) && isUndisturbed(scene, run) &&
           !leavesBytesBehind(scene.script);
}

// What happens in the moment in which it begins is its own doing.
bool beginsAlone(const Script& script, const std::vector<ProxyRun>& runs, const ProxyRun& run) {
    return std::none_of(runs.begin(), runs.end(), [&](const ProxyRun& other) {
        const bool has_ended =
            other.end < run.begin || (other.end == run.begin && endsWithoutConnecting(script, other));
        return &other != &run && other.begin <= run.begin && !has_ended;
    });
}

// A first connection that nobody answers lasts as long as its limit.
Time endOfWait(const Scene& scene, const std::vector<ProxyRun>& runs, const ProxyRun& run) {
    const auto& links = scene.seen.proxyLinks;
    const auto is_first = [&run](const ProxyLink& link) { return link.at == run.begin; };
    const auto first = std::find_if(links.begin(), links.end(), is_first);
    const std::int64_t limit = run.journey->request.timeout;
    const bool waits = std::count_if(links.begin(), links.end(), is_first) == 1 && run.mayTry(first->proxy) &&
                       scene.script.proxy(first->proxy).connect == Connect::silent && limit > 0;
    const bool is_told = waits && couldBeClear(scene, run) && beginsAlone(scene.script, runs, run);
    return is_told ? run.begin + std::chrono::milliseconds(limit) - millisecond : run.begin;
}

bool waitsFor(const ProxyRun& one, const ProxyRun& other) {
    return one.begin < other.begin && other.end < one.waitsUntil;
}

bool runBesideEachOther(const Script& script, const ProxyRun& one, const ProxyRun& other) {
    if (waitsFor(one, other) || waitsFor(other, one)) return false;
    if (one.begin == other.end) return !endsWithoutConnecting(script, other);
    if (other.begin == one.end) return !endsWithoutConnecting(script, one);
    return one.begin < other.end && other.begin < one.end;
}

// What a server is known to have sent by then. Where a redirect is followed the answer is that to which it leads.
Answered answeredBy(const Scene& scene, const Journey& journey, const Visit& visit, Time at) {
    const bool leaves_bytes = std::any_of(scene.script.replies.begin(), scene.script.replies.end(),
                                          [](const ReplyScript& one) { return one.lie == Lie::shorter; });
    const bool is_followed = visit.reply.location >= 0 && journey.request.callerRedirects == 0;
    if (visit.reply.lie != Lie::none || visit.reply.challenge != Challenge::none || leaves_bytes || is_followed)
        return Answered::maybe;
    if (!visit.reading.hasBegun) return Answered::no;
    const HostScript host = scene.script.host(visit.arrival->host);
    const bool is_broken_off = host.tls != 0 && host.tlsCut != Cut::none;
    const auto gaps = visit.reply.piece > 0 ? static_cast<std::int64_t>(visit.size) / visit.reply.piece : 0;
    const Time all = visit.arrival->at + Time(visit.reply.delay) + gaps * Time(visit.reply.gap);
    return visit.reading.status != 0 && all < at && !is_broken_off ? Answered::yes : Answered::maybe;
}

// The proxies to which it has connected, or through which it has come to servers, in this order.
class Turns {
 public:
    Turns(const Scene& scene, const ProxyRun& run) : scene_(scene), run_(run) {
        for (const Arrival& arrival : scene.seen.arrivals) tunnels_.emplace(arrival.connection, arrival.proxy);
    }

    std::vector<ProxyTurn> all() {
        for (const ProxyLink& link : scene_.seen.proxyLinks) {
            if (!isAnothers(link.at)) add(link.arrivals, link.at, link.proxy);
        }
        for (const Unheard& one : scene_.seen.unheard) {
            const auto tunnel = tunnels_.find(one.connection);
            if (tunnel != tunnels_.end() && !isAnothers(one.at)) add(one.arrivals, one.at, tunnel->second);
        }
        for (std::size_t number = 0; number < scene_.seen.arrivals.size(); ++number) {
            const Arrival& arrival = scene_.seen.arrivals[number];
            if (arrival.request == run_.journey->request.id) add(number, arrival.at, arrival.proxy);
        }
        std::vector<ProxyTurn> turns;
        for (const auto& [place, proxy] : signs_) {
            if (turns.empty() || turns.back().proxy != proxy) turns.push_back({proxy, place.second, Answered::no});
        }
        for (std::size_t index = 0; index < turns.size(); ++index) {
            judge(turns[index], index + 1 < turns.size() ? turns[index + 1].at : run_.end);
        }
        return turns;
    }

 private:
    bool isAnothers(Time at) const { return run_.begin < at && at < run_.waitsUntil; }

    void add(std::size_t arrivals, Time at, std::int64_t proxy) {
        const bool ends_before = at > run_.end || (at == run_.end && endsWithoutConnecting(scene_.script, run_));
        if (proxy != 0 && at >= run_.begin && !ends_before) signs_.emplace(std::make_pair(arrivals, at), proxy);
    }

    void judge(ProxyTurn& turn, Time until) const {
        for (const Visit& visit : run_.journey->visits) {
            const Time at = visit.arrival->at;
            if (at < turn.at || at > until || visit.arrival->proxy != turn.proxy) continue;
            turn.answered = std::max(turn.answered, answeredBy(scene_, *run_.journey, visit, until));
        }
    }

    const Scene& scene_;
    const ProxyRun& run_;
    std::map<std::int64_t, std::int64_t> tunnels_;
    // By the number of arrivals before, then by time: more than one thing may happen at the same time.
    std::multimap<std::pair<std::size_t, Time>, std::int64_t> signs_;
};

bool isAlone(const Scene& scene, const std::vector<ProxyRun>& runs, const ProxyRun& run) {
    return std::none_of(runs.begin(), runs.end(), [&](const ProxyRun& other) {
        return &other != &run && runBesideEachOther(scene.script, run, other);
    });
}

}  // namespace

bool ProxyRun::mayTry(std::int64_t proxy) const {
    return std::find(list.begin(), list.end(), proxy) != list.end();
}

std::vector<ProxyRun> proxyRuns(const Scene& scene) {
    std::vector<ProxyRun> runs;
    if (scene.script.world.proxyMode == ProxyMode::off) return runs;
    for (const Journey& journey : scene.journeys) {
        if (journey.request.proxies <= 0 || !journey.told.started) continue;
        ProxyRun& run = runs.emplace_back();
        run.journey = &journey;
        run.list = listOf(scene.script, journey.request);
        run.begin = journey.told.startedAt;
        run.end = endOf(journey);
    }
    std::stable_sort(runs.begin(), runs.end(),
                     [](const ProxyRun& one, const ProxyRun& other) { return one.begin < other.begin; });
    for (ProxyRun& run : runs) run.waitsUntil = endOfWait(scene, runs, run);
    for (ProxyRun& run : runs) {
        run.isClear = couldBeClear(scene, run) && isAlone(scene, runs, run);
        if (run.isClear) run.turns = Turns(scene, run).all();
    }
    return runs;
}

}  // namespace kel::http::simulation
