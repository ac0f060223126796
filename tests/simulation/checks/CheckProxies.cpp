// SPDX-License-Identifier: MIT
#include "checks/CheckProxies.h"

#include <map>

#include "checks/ProxyRuns.h"

namespace kel::http::simulation {
namespace {

// How long a failure counts, and how well it is known when it came.
constexpr Time listing = std::chrono::minutes(30);
constexpr Time doubt = std::chrono::seconds(1);

using Proxies = std::vector<std::int64_t>;

// What callers were promised about each proxy, from one turn to the next.
class Account {
 public:
    explicit Account(std::vector<std::string>& faults) : faults_(faults) {}

    void take(const std::vector<ProxyRun>& runs) {
        std::vector<Step> steps;
        for (const ProxyRun& run : runs) {
            for (std::size_t turn = 0; turn < run.turns.size(); ++turn)
                steps.push_back({run.turns[turn].at, &run, &run.turns[turn]});
            if (!run.isClear) steps.push_back({run.begin, &run, nullptr});
            steps.push_back({run.end, &run, nullptr});
        }
        std::stable_sort(steps.begin(), steps.end(),
                         [](const Step& one, const Step& other) { return one.at < other.at; });
        for (const Step& step : steps) take(step);
    }

 private:
    enum class Standing { fine, failed, unknown };
    struct Entry {
        Standing standing = Standing::fine;
        Time since{0};
    };

    struct Step {
        Time at;
        const ProxyRun* run;
        // Null: it ends.
        const ProxyTurn* turn;
    };
    // A request that goes on.
    struct Progress {
        Proxies left;
        const ProxyTurn* latest = nullptr;
        // It has gone astray, and nothing more is said about it.
        bool isLost = false;
    };

    void fail(const ProxyRun& run, const std::string& fault) {
        faults_.push_back("request " + std::to_string(run.journey->request.id) + ": " + fault);
    }
    static std::string name(std::int64_t proxy) { return "proxy " + std::to_string(proxy); }

    void fine(std::int64_t proxy) { entries_[proxy] = {}; }
    void failed(std::int64_t proxy, Time at) { entries_[proxy] = {Standing::failed, at}; }
    void unknown(std::int64_t proxy) { entries_[proxy] = {Standing::unknown, Time(0)}; }

    Standing standing(std::int64_t proxy, Time now) const {
        const auto found = entries_.find(proxy);
        if (found == entries_.end()) return Standing::fine;
        const Entry& entry = found->second;
        if (entry.standing != Standing::failed || now - entry.since < listing - doubt) return entry.standing;
        return now - entry.since > listing + doubt ? Standing::fine : Standing::unknown;
    }

    // The first of those about which enough is known: whatever is true of the others, they stand in this order. 0: none.
    std::int64_t next(const Proxies& left, Time now) const {
        for (const Standing wanted : {Standing::fine, Standing::failed}) {
            for (const std::int64_t proxy : left) {
                if (standing(proxy, now) == wanted) return proxy;
            }
        }
        return 0;
    }

    void take(const Step& step) {
        if (!step.run->isClear) return lose(*step.run);
        const auto [entry, is_new] = under_way_.try_emplace(step.run);
        Progress& progress = entry->second;
        if (is_new) progress.left = step.run->list;
        if (progress.isLost) return;
        if (step.turn == nullptr) return conclude(*step.run, progress);
        if (progress.latest != nullptr) goOn(*step.run, *progress.latest, step.at);
        takeTurn(*step.run, *step.turn, progress);
    }

    void lose(const ProxyRun& run) {
        for (const std::int64_t proxy : run.list) unknown(proxy);
    }

    void goOn(const ProxyRun& run, const ProxyTurn& from, Time now) {
        if (from.answered == Answered::yes)
            fail(run, "goes on behind " + name(from.proxy) + ", which brought an answer");
        failed(from.proxy, now);
    }

    void takeTurn(const ProxyRun& run, const ProxyTurn& turn, Progress& progress) {
        const auto place = std::find(progress.left.begin(), progress.left.end(), turn.proxy);
        if (place == progress.left.end()) {
            fail(run, "tries " + name(turn.proxy) + (run.mayTry(turn.proxy) ? " once more" : " unasked"));
            progress.isLost = true;
            return lose(run);
        }
        const std::int64_t wanted = next(progress.left, turn.at);
        if (standing(turn.proxy, turn.at) != Standing::unknown && wanted != turn.proxy)
            fail(run, "tries " + name(turn.proxy) + " before " + name(wanted));
        progress.left.erase(place);
        progress.latest = &turn;
        // Who has been moved behind the others stays there, even if his time is over by the next turn. Who may have been is
        // anywhere from now on.
        progress.isLost = std::any_of(progress.left.begin(), progress.left.end(), [&](std::int64_t proxy) {
            return standing(proxy, turn.at) == Standing::unknown;
        });
        if (progress.isLost) return lose(run);
        std::stable_partition(progress.left.begin(), progress.left.end(),
                              [&](std::int64_t proxy) { return standing(proxy, turn.at) != Standing::failed; });
    }

    void conclude(const ProxyRun& run, const Progress& progress) {
        if (progress.latest == nullptr) return fail(run, "tries none of its proxies");
        const ProxyTurn& last = *progress.latest;
        const SeenOutcome& outcome = *run.journey->outcome();
        if (!outcome.isError || last.answered == Answered::yes) return fine(last.proxy);
        if (last.answered == Answered::maybe) return unknown(last.proxy);
        failed(last.proxy, outcome.at);
        if (progress.left.empty()) return;
        fail(run, "gives up behind " + name(last.proxy) + ", with " + name(progress.left.front()) + " left");
    }

    std::vector<std::string>& faults_;
    std::map<std::int64_t, Entry> entries_;
    std::map<const ProxyRun*, Progress> under_way_;
};

void checkLinks(const Observation& seen, const std::vector<ProxyRun>& runs, std::vector<std::string>& faults) {
    for (const ProxyLink& link : seen.proxyLinks) {
        const bool is_meant = std::any_of(runs.begin(), runs.end(), [&link](const ProxyRun& run) {
            return run.begin <= link.at && link.at <= run.end && run.mayTry(link.proxy);
        });
        if (!is_meant) faults.push_back("proxy " + std::to_string(link.proxy) + " is connected to for nobody");
    }
}

// Each request comes to servers through its proxies, and those that have none come straight.
void checkTunnels(const Observation& seen, const std::vector<ProxyRun>& runs, std::vector<std::string>& faults) {
    for (const Arrival& arrival : seen.arrivals) {
        const auto run = std::find_if(runs.begin(), runs.end(), [&arrival](const ProxyRun& one) {
            return one.journey->request.id == arrival.request;
        });
        if (run == runs.end() ? arrival.proxy == 0 : run->mayTry(arrival.proxy)) continue;
        const std::string way = arrival.proxy == 0 ? "straight" : "through proxy " + std::to_string(arrival.proxy);
        faults.push_back("request " + std::to_string(arrival.request) + ": comes to its server " + way);
    }
}

}  // namespace

void checkProxies(const Script& script, const Observation& seen, std::vector<std::string>& faults) {
    if (script.world.proxyMode == ProxyMode::off) {
        checkLinks(seen, {}, faults);
        return checkTunnels(seen, {}, faults);
    }
    const Scene scene(script, seen);
    const std::vector<ProxyRun> runs = proxyRuns(scene);
    checkLinks(seen, runs, faults);
    checkTunnels(seen, runs, faults);
    if (script.world.proxyMode != ProxyMode::list) return;
    Account(faults).take(runs);
}

}  // namespace kel::http::simulation
