// SPDX-License-Identifier: MIT
// Roads of requests: redirects, kept connections, repetitions, and what becomes of them when troubles end.
#include "checks/States.h"
#include "model/Model.h"

namespace kel::http::simulation {
namespace {

constexpr std::string_view too_many = "Maximum (5) redirects followed";

bool isFollowed(const Visit& visit, const Journey& journey) {
    return journey.request.callerRedirects == 0 && visit.reply.location >= 0 && &visit != journey.last();
}

template <typename Condition>
bool anyFollowed(const Scene& scene, Condition condition) {
    return scene.anyVisit([&](const Journey& journey, const Visit& visit) {
        return isFollowed(visit, journey) && !(&visit + 1)->isRepeat && condition(journey, visit, *(&visit + 1));
    });
}

// It ends on its way from the last server that was asked to the one that this led to.
template <typename Condition>
bool anyLost(const Scene& scene, Condition condition) {
    return scene.anyJourney([&](const Journey& journey) {
        const Visit* const last = journey.last();
        return last != nullptr && last->reply.location >= 0 && journey.outcome() != nullptr &&
               condition(journey, scene.script.host(last->reply.locationHost));
    });
}

template <Verb verb, bool with_body>
bool redirected(const Scene& scene) {
    return anyFollowed(scene, [](const Journey& journey, const Visit&, const Visit& next) {
        return journey.request.verb == verb && journey.request.body > 0 && (next.arrival->bodySize > 0) == with_body;
    });
}

bool connectsAnew(const Scene& scene) {
    return scene.anyVisit([&](const Journey&, const Visit& visit) {
        return !visit.isUsed && scene.script.host(visit.arrival->host).idle > 0 &&
               std::any_of(scene.seen.arrivals.begin(), scene.seen.arrivals.end(), [&](const Arrival& other) {
                   return other.host == visit.arrival->host && other.at + std::chrono::seconds(1) < visit.arrival->at;
               });
    });
}

bool isCalmAt(const Scene& scene, Time at) {
    const std::int64_t calm = scene.script.world.calmAt;
    return calm > 0 && at - scene.seen.begin >= Time(calm);
}

template <typename Condition>
bool servedInCalm(const Scene& scene, Condition condition) {
    return scene.anyVisit([&](const Journey& journey, const Visit& visit) {
        return isCalmAt(scene, visit.arrival->at) && journey.hasResponse() &&
               condition(scene.script.host(visit.arrival->host), visit);
    });
}

bool manyAtOnce(const Scene& scene) {
    return scene.anyJourney([&](const Journey& one) {
        return std::count_if(scene.journeys.begin(), scene.journeys.end(), [&](const Journey& other) {
                   return other.told.startedAt <= one.told.startedAt && other.outcome() != nullptr &&
                          other.outcome()->at >= one.told.startedAt;
               }) >= 5;
    });
}

std::vector<State> statesOfRedirects() {
    using Next = const Visit&;
    return {
        {"redirect followed to another host",
         [](const Scene& scene) {
             return anyFollowed(scene, [](const Journey&, const Visit& visit, Next next) {
                 return visit.arrival->host != next.arrival->host;
             });
         }},
        {"redirect followed over the same connection",
         [](const Scene& scene) {
             return anyFollowed(scene, [](const Journey&, const Visit& visit, Next next) {
                 return visit.arrival->connection == next.arrival->connection;
             });
         }},
        {"redirect followed from an answer that closes",
         [](const Scene& scene) {
             return anyFollowed(scene, [](const Journey&, const Visit& visit, Next) { return visit.reading.closes; });
         }},
        {"redirect followed whose page broke off",
         [](const Scene& scene) {
             return anyFollowed(scene, [](const Journey&, const Visit& visit, Next) {
                 return visit.isCut && visit.reading.status != 0;
             });
         }},
        {"redirect followed whose head broke off",
         [](const Scene& scene) {
             return anyFollowed(scene, [](const Journey&, const Visit& visit, Next) {
                 return visit.isCut && visit.reading.hasBegun && visit.reading.status == 0;
             });
         }},
        {"five redirects followed to a response",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) {
                 return one.hasResponse() && one.visits.size() >= 6 && one.request.callerRedirects == 0 &&
                        one.last()->arrival->exchange == one.request.exchange + 5;
             });
         }},
        {"more redirects than five",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) {
                 return one.failedWith(end::other) && one.outcome()->message.find(too_many) != std::string::npos;
             });
         }},
        {"redirect to a host that refuses",
         [](const Scene& scene) {
             return anyLost(scene, [](const Journey& one, const HostScript& host) {
                 return one.failedWith(end::connect_failed) && host.connect == Connect::refuse;
             });
         }},
        {"redirect to a silent host",
         [](const Scene& scene) {
             return anyLost(scene, [](const Journey& one, const HostScript& host) {
                 return one.failedWith(end::timeout) && host.connect == Connect::silent;
             });
         }},
        {"redirect to an unknown name",
         [](const Scene& scene) {
             return anyLost(scene,
                            [](const Journey& one, const HostScript&) { return one.failedWith(end::resolve_failed); });
         }},
        {"redirect left to the caller",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) {
                 return one.hasResponse() && one.request.callerRedirects != 0 && one.last()->reply.location >= 0;
             });
         }},
        {"POST redirected, its body left behind", redirected<Verb::POST, false>},
        {"POST redirected with its body", redirected<Verb::POST, true>},
        {"PUT redirected with its body", redirected<Verb::PUT, true>},
        {"PATCH redirected with its body", redirected<Verb::PATCH, true>},
        {"DELETE redirected, its body left behind", redirected<Verb::DELETE, false>},
    };
}

std::vector<State> statesOfConnections() {
    return {
        {"served over a used connection",
         [](const Scene& scene) {
             return scene.anyVisit([](const Journey& one, const Visit& visit) {
                 return visit.isUsed && one.hasResponse() && &visit == one.last();
             });
         }},
        {"connection made anew after an idle one's end", connectsAnew},
        {"kept connection closed while a request was being sent",
         [](const Scene& scene) { return !scene.seen.unheard.empty(); }},
        {"repeated, and served in the end",
         [](const Scene& scene) {
             return scene.anyVisit(
                 [](const Journey& one, const Visit& visit) { return visit.isRepeat && one.hasResponse(); });
         }},
        {"repeated with its body",
         [](const Scene& scene) {
             return scene.anyVisit(
                 [](const Journey&, const Visit& visit) { return visit.isRepeat && visit.arrival->bodySize > 0; });
         }},
        {"repeated after a piece of a line",
         [](const Scene& scene) {
             return scene.anyVisit([](const Journey& one, const Visit& visit) {
                 return visit.size > 0 && !visit.reading.hasBegun && &visit != one.last() && (&visit + 1)->isRepeat;
             });
         }},
        {"fresh connection though a kept one was there",
         [](const Scene& scene) {
             return scene.anyVisit([](const Journey& one, const Visit& visit) {
                 return one.request.freshState != 0 && !visit.isUsed && visit.arrival->connection > 0;
             });
         }},
        {"five requests at once", manyAtOnce},
        {"served in calm by a host that refused or was silent",
         [](const Scene& scene) {
             return servedInCalm(scene,
                                 [](const HostScript& host, const Visit&) { return host.connect != Connect::accept; });
         }},
        {"served in calm under a name that was unknown",
         [](const Scene& scene) {
             return servedInCalm(
                 scene, [](const HostScript& host, const Visit&) { return host.named != 0 && host.nameFails != 0; });
         }},
        {"served in calm with what would have been cut",
         [](const Scene& scene) {
             return servedInCalm(scene, [](const HostScript&, const Visit& visit) {
                 return visit.reply.cut != Cut::none && visit.reply.cutAt < static_cast<std::int64_t>(visit.size);
             });
         }},
    };
}

}  // namespace

std::vector<State> statesOfRoads() {
    std::vector<State> states = statesOfRedirects();
    const std::vector<State> more = statesOfConnections();
    states.insert(states.end(), more.begin(), more.end());
    return states;
}

}  // namespace kel::http::simulation
