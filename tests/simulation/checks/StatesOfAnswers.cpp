// SPDX-License-Identifier: MIT
// Answers whole and broken, limits of their sizes, and the network's whims.
#include "checks/States.h"
#include "model/Model.h"

namespace kel::http::simulation {
namespace {

template <typename Condition>
bool cutWhere(const Scene& scene, Cut cut, Condition condition) {
    return scene.anyVisit([&](const Journey& journey, const Visit& visit) {
        return visit.isCut && visit.reply.cut == cut && journey.outcome() != nullptr && &visit == journey.last() &&
               condition(visit);
    });
}

bool isInHead(const Visit& visit) {
    return visit.reading.hasBegun && visit.reading.status == 0;
}
bool isInBody(const Visit& visit) {
    return visit.reading.status != 0 && !visit.reading.isWhole;
}
bool isInterimOnly(const Visit& visit) {
    return isInHead(visit) && visit.reading.begun == 103;
}
bool hasNothing(const Visit& visit) {
    return visit.size == 0;
}

template <Cut cut, bool (*condition)(const Visit&)>
bool broken(const Scene& scene) {
    return cutWhere(scene, cut, condition);
}

template <Framing framing>
bool brokenInBody(const Scene& scene) {
    return cutWhere(scene, Cut::close,
                    [](const Visit& visit) { return isInBody(visit) && visit.reply.framing == framing; });
}

template <typename Condition>
bool served(const Scene& scene, Condition condition) {
    return scene.anyJourney([&](const Journey& journey) {
        return journey.hasResponse() && journey.last() != nullptr && condition(journey, *journey.last());
    });
}

template <int status>
bool servedWith(const Scene& scene) {
    return served(scene, [](const Journey& journey, const Visit&) { return journey.outcome()->status == status; });
}

std::int64_t sizeOf(const Journey& journey) {
    return static_cast<std::int64_t>(journey.outcome()->body.size());
}

std::vector<State> statesOfBreaks() {
    return {
        {"closed before the first byte", broken<Cut::close, hasNothing>},
        {"reset before the first byte", broken<Cut::reset, hasNothing>},
        {"closed inside the head", broken<Cut::close, isInHead>},
        {"reset inside the head", broken<Cut::reset, isInHead>},
        {"stalled inside the head", broken<Cut::stall, isInHead>},
        {"interim answer, then closed", broken<Cut::close, isInterimOnly>},
        {"interim answer, then stalled", broken<Cut::stall, isInterimOnly>},
        {"closed inside a body of announced length", brokenInBody<Framing::length>},
        {"closed inside a body of chunks", brokenInBody<Framing::chunked>},
        {"closed inside a body that ends so", brokenInBody<Framing::close>},
        {"reset inside the body", broken<Cut::reset, isInBody>},
        {"stalled inside the body", broken<Cut::stall, isInBody>},
        {"cut inside a trailer",
         [](const Scene& scene) {
             return scene.anyVisit(
                 [](const Journey&, const Visit& visit) { return visit.isCut && visit.reading.endsInTrailer; });
         }},
    };
}

std::vector<State> statesOfResponses() {
    return {
        {"response 204", servedWith<204>},
        {"response 206 nobody asked for", servedWith<206>},
        {"response 304", servedWith<304>},
        {"response 401", servedWith<401>},
        {"response 404", servedWith<404>},
        {"response 500", servedWith<500>},
        {"empty body",
         [](const Scene& scene) {
             return served(scene, [](const Journey& one, const Visit& visit) {
                 return sizeOf(one) == 0 && visit.reading.announced == 0;
             });
         }},
        {"body larger than a buffer of libcurl's",
         [](const Scene& scene) {
             return served(scene, [](const Journey& one, const Visit&) { return sizeOf(one) > 16384; });
         }},
        {"whole trailer",
         [](const Scene& scene) {
             return served(scene,
                           [](const Journey& one, const Visit&) { return one.outcome()->headers.count("t0") != 0; });
         }},
        {"whole answer behind interim ones",
         [](const Scene& scene) {
             return served(scene,
                           [](const Journey& one, const Visit&) { return one.outcome()->headers.count("link") != 0; });
         }},
        {"head split between receipts",
         [](const Scene& scene) {
             return served(scene, [&](const Journey&, const Visit& visit) {
                 const std::int64_t most = scene.script.host(visit.arrival->host).mostReceived;
                 const auto head = static_cast<std::int64_t>(visit.reading.head);
                 return (most > 0 && most < head) || (visit.reply.piece > 0 && visit.reply.piece < head);
             });
         }},
        {"size limit exactly reached",
         [](const Scene& scene) {
             return served(scene,
                           [](const Journey& one, const Visit&) { return one.request.sizeLimit == sizeOf(one); });
         }},
        {"size limit passed by an announcement",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) {
                 return one.failedWith(end::other) && one.last() != nullptr && one.request.sizeLimit > 0 &&
                        one.last()->reading.announced > one.request.sizeLimit;
             });
         }},
        {"size limit passed by a body",
         [](const Scene& scene) {
             return scene.anyJourney(
                 [](const Journey& one) { return one.failedWith(end::write_failed) && one.request.sizeLimit > 0; });
         }},
        {"size limit of zero passed",
         [](const Scene& scene) {
             return scene.anyJourney(
                 [](const Journey& one) { return one.failedWith(end::write_failed) && one.request.sizeLimit == 0; });
         }},
    };
}

std::vector<State> statesOfNetworks() {
    return {
        {"connection refused",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) { return one.failedWith(end::connect_failed); });
         }},
        {"connection never made", [](const Scene& scene) { return scene.seen.counters.neverConnected > 0; }},
        {"name not found",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) { return one.failedWith(end::resolve_failed); });
         }},
        {"name found slowly",
         [](const Scene& scene) {
             const Counters& counters = scene.seen.counters;
             return counters.slowLookUps > counters.failedLookUps;
         }},
        {"sending interrupted", [](const Scene& scene) { return scene.seen.counters.interruptedSends > 0; }},
        {"receiving interrupted", [](const Scene& scene) { return scene.seen.counters.interruptedReceives > 0; }},
        {"sending and receiving interrupted",
         [](const Scene& scene) {
             const Counters& counters = scene.seen.counters;
             return counters.interruptedSends > 0 && counters.interruptedReceives > 0;
         }},
        {"body sent in pieces",
         [](const Scene& scene) {
             return scene.seen.counters.shortSends > 20 &&
                    scene.anyVisit([](const Journey&, const Visit& visit) { return visit.arrival->bodySize > 1000; });
         }},
        {"received less than was there", [](const Scene& scene) { return scene.seen.counters.shortReceives > 0; }},
        {"received a reset", [](const Scene& scene) { return scene.seen.counters.resetReceives > 0; }},
        {"received an end", [](const Scene& scene) { return scene.seen.counters.closedReceives > 0; }},
    };
}

}  // namespace

std::vector<State> statesOfAnswers() {
    std::vector<State> states = statesOfBreaks();
    for (const auto& more : {statesOfResponses(), statesOfNetworks()})
        states.insert(states.end(), more.begin(), more.end());
    return states;
}

}  // namespace kel::http::simulation
