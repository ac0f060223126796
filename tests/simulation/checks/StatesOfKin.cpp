// SPDX-License-Identifier: MIT
// Requests that belong together, and moments that matter to them.
#include "checks/States.h"
#include "model/Model.h"

namespace kel::http::simulation {
namespace {

// When the first byte of the answer came that it has in the end.
Time answeredAt(const Journey& journey) {
    return journey.last() == nullptr ? Never : journey.last()->arrival->at + Time(journey.last()->reply.delay);
}

bool twins(const Scene& scene) {
    return scene.anyJourney([&](const Journey& one) {
        return one.hasResponse() && scene.anyJourney([&](const Journey& other) {
            return &other != &one && other.hasResponse() && one.last() != nullptr && other.last() != nullptr &&
                   one.last()->arrival->at == other.last()->arrival->at && one.outcome()->at == other.outcome()->at;
        });
    });
}

// Its first try has met a connection that took no more than its head.
bool uploadBegunAnew(const Scene& scene) {
    return scene.anyVisit([&](const Journey& one, const Visit& visit) {
        const Time broken = one.told.startedAt + Time(scene.script.host(one.request.host).headOnly);
        return one.request.verb == Verb::PUT && visit.arrival->bodySize > 0 && one.hasResponse() &&
               broken > one.told.startedAt && visit.arrival->at >= broken && !visit.isUsed && &visit == one.last();
    });
}

// Held back: what comes in the instant of the pause, and waits for the next resumption.
bool heldTrailers(const Scene& scene) {
    return scene.anyDeed([&](const Scene::Deed& deed) {
        const Journey* const one = scene.journey(deed.seen.request);
        return deed.seen.deed == Deed::pause && deed.seen.isRunning && one->hasResponse() &&
               deed.seen.at == answeredAt(*one) && one->last()->reply.trailers > 1 &&
               one->last()->reply.framing == Framing::chunked && one->last()->reply.body > 0 &&
               one->outcome()->at > deed.seen.at;
    });
}

template <int difference>
bool limited(const Scene& scene) {
    return scene.anyJourney([](const Journey& one) {
        const bool is_told =
            difference < 0 ? one.failedWith(end::write_failed) || one.failedWith(end::other) : one.hasResponse();
        return is_told && one.last() != nullptr && one.request.sizeLimit >= 0 && one.last()->reply.body > 0 &&
               one.request.sizeLimit == one.last()->reply.body + difference;
    });
}

bool resumedBehindOdd(const Scene& scene) {
    return scene.anyJourney([](const Journey& one) {
        return one.request.download == 3 && one.request.present % 2 == 1 && one.hasResponse() &&
               one.outcome()->status == 206;
    });
}

bool toldOfResumed(const Scene& scene) {
    return scene.anyJourney([](const Journey& one) {
        return one.request.download == 3 && one.request.present > 0 && one.told.reports.size() > 1 && one.hasResponse();
    });
}

bool pausedAtOnce(const Scene& scene) {
    return scene.anyDeed([&](const Scene::Deed& deed) {
        const Journey* const one = scene.journey(deed.seen.request);
        return deed.seen.deed == Deed::pause && deed.seen.isRunning && one->last() != nullptr && one->hasResponse() &&
               one->told.startedAt == deed.seen.at && one->outcome()->at > deed.seen.at + std::chrono::seconds(1) / 2;
    });
}

// Two whose bodies wait at the same time, and who go on one after the other.
bool pausedTogether(const Scene& scene) {
    const auto isInBody = [&](const Scene::Deed& deed) {
        const Journey* const one = scene.journey(deed.seen.request);
        return deed.seen.deed == Deed::pause && deed.seen.isRunning && deed.phase == Phase::InBody &&
               one->hasResponse();
    };
    return scene.anyDeed([&](const Scene::Deed& first) {
        return isInBody(first) && scene.anyDeed([&](const Scene::Deed& other) {
            return isInBody(other) && other.seen.request != first.seen.request && other.seen.at == first.seen.at &&
                   scene.resumedAfter(other.seen.request, other.seen.at) !=
                       scene.resumedAfter(first.seen.request, first.seen.at);
        });
    });
}

bool executorEndedWhileAnswered(const Scene& scene) {
    return scene.anyDeed([&](const Scene::Deed& deed) {
        const Journey* const one = scene.journey(deed.seen.request);
        return deed.seen.deed == Deed::endExecutor && deed.seen.isRunning && deed.seen.at == answeredAt(*one);
    });
}

template <Phase phase>
bool engineEnded(const Scene& scene) {
    return scene.seen.engineEnd != Never && scene.anyJourney([&](const Journey& one) {
        return one.told.orphaned && one.told.startedAt < scene.seen.engineEnd && one.outcome() == nullptr &&
               scene.phaseAt(one, scene.seen.engineEnd) == phase;
    });
}

bool failedBesideServed(const Scene& scene) {
    return scene.anyJourney([&](const Journey& one) {
        const bool failed = one.failedWith(end::other) && one.request.bodyFile == 2;
        return failed && scene.anyJourney([&](const Journey& other) {
            return other.hasResponse() && other.told.startedAt == one.told.startedAt;
        });
    });
}

}  // namespace

std::vector<State> statesOfKin() {
    return {
        {"two answered in the same instant", twins},
        {"upload begun anew of which a head had come", uploadBegunAnew},
        {"trailers held back by a pause", heldTrailers},
        {"limit one byte below the body", limited<-1>},
        {"limit as long as the body", limited<0>},
        {"limit one byte beyond the body", limited<1>},
        {"resumed behind an odd number of bytes", resumedBehindOdd},
        {"resumed download told of its progress", toldOfResumed},
        {"paused as soon as started, and served later", pausedAtOnce},
        {"two paused inside their bodies, resumed in turn", pausedTogether},
        {"executor ended in the instant of an answer", executorEndedWhileAnswered},
        {"engine destroyed under a connection being made", engineEnded<Phase::Connecting>},
        {"engine destroyed under a body", engineEnded<Phase::InBody>},
        {"set-up failed beside one that was served", failedBesideServed},
    };
}

}  // namespace kel::http::simulation
