// SPDX-License-Identifier: MIT
// Callers' doings and ends of requests, each at every place of a request's life.
#include "checks/States.h"
#include "model/Model.h"

namespace kel::http::simulation {
namespace {

template <Phase phase>
bool timedOut(const Scene& scene) {
    return scene.anyJourney([](const Journey& journey) {
        return journey.failedWith(end::timeout) && journey.phaseAtEnd == phase && !journey.wasPausedAtEnd;
    });
}

template <Deed what, Phase phase>
bool done(const Scene& scene) {
    return scene.anyDeed(
        [](const Scene::Deed& deed) { return deed.seen.deed == what && deed.phase == phase && deed.seen.isRunning; });
}

// Its outcome is on its way: nobody else's could be.
bool cancelledBeforeDelivery(const Scene& scene) {
    return scene.anyDeed([&](const Scene::Deed& deed) {
        const Journey* const own = scene.journey(deed.seen.request);
        const bool others_run = scene.anyJourney([&](const Journey& other) {
            return other.request.id != deed.seen.request && other.told.startedAt <= deed.seen.at &&
                   (other.outcome() == nullptr || other.outcome()->at >= deed.seen.at);
        });
        return deed.seen.deed == Deed::cancel && deed.seen.isRunning && deed.seen.isQueued && !others_run &&
               own != nullptr;
    });
}

bool pausedWhileRepeated(const Scene& scene) {
    return scene.anyVisit([&](const Journey& journey, const Visit& visit) {
        return visit.isRepeat && scene.isPaused(journey.request.id, visit.arrival->at);
    });
}

bool brokenOffWhilePaused(const Scene& scene) {
    return scene.anyVisit([&](const Journey& journey, const Visit& visit) {
        const Time at = visit.arrival->at + Time(visit.reply.delay);
        return visit.isCut && visit.reply.cut != Cut::stall && scene.isPaused(journey.request.id, at);
    });
}

bool pausedAndServed(const Scene& scene) {
    return scene.anyDeed([&](const Scene::Deed& deed) {
        const Journey* const journey = scene.journey(deed.seen.request);
        return deed.seen.deed == Deed::pause && deed.seen.isRunning && deed.phase == Phase::InBody &&
               journey->hasResponse() && journey->outcome()->at >= scene.resumedAfter(deed.seen.request, deed.seen.at);
    });
}

bool runsSomewhere(const Scene& scene, Time at) {
    return scene.anyJourney([at](const Journey& journey) {
        const bool ended = (journey.outcome() != nullptr && journey.outcome()->at <= at) ||
                           (journey.told.cancelled && journey.told.cancelledAt <= at);
        return journey.told.started && journey.told.startedAt <= at && !ended;
    });
}

template <bool busy>
bool settled(const Scene& scene) {
    return scene.anyDeed([&](const Scene::Deed& deed) {
        return deed.seen.deed == Deed::settle && runsSomewhere(scene, deed.seen.at) == busy;
    });
}

template <typename Condition>
bool ended(const Scene& scene, Condition condition) {
    return scene.anyJourney([&](const Journey& journey) { return journey.outcome() != nullptr && condition(journey); });
}

}  // namespace

std::vector<State> statesOfCallers() {
    return {
        {"timed out while its name was looked up", timedOut<Phase::Resolving>},
        {"timed out while connecting", timedOut<Phase::Connecting>},
        {"timed out waiting for the answer", timedOut<Phase::Asked>},
        {"timed out inside the head", timedOut<Phase::InHead>},
        {"timed out inside the body", timedOut<Phase::InBody>},
        {"timed out while paused",
         [](const Scene& scene) {
             return ended(scene, [](const Journey& one) { return one.failedWith(end::timeout) && one.wasPausedAtEnd; });
         }},
        {"timed out behind a redirect",
         [](const Scene& scene) {
             return ended(scene, [](const Journey& one) {
                 return one.failedWith(end::timeout) && one.last() != nullptr &&
                        one.last()->arrival->exchange != one.request.exchange;
             });
         }},
        {"served in the last tenth of its limit",
         [](const Scene& scene) {
             return ended(scene, [](const Journey& one) {
                 const Time limit = std::chrono::milliseconds(one.request.timeout);
                 return one.hasResponse() && limit > Time(0) &&
                        one.outcome()->at - one.told.startedAt >= limit * 9 / 10;
             });
         }},
        {"cancelled while its name was looked up", done<Deed::cancel, Phase::Resolving>},
        {"cancelled while connecting", done<Deed::cancel, Phase::Connecting>},
        {"cancelled waiting for the answer", done<Deed::cancel, Phase::Asked>},
        {"cancelled inside the head", done<Deed::cancel, Phase::InHead>},
        {"cancelled inside the body", done<Deed::cancel, Phase::InBody>},
        {"cancelled between completion and delivery", cancelledBeforeDelivery},
        {"cancelled while paused",
         [](const Scene& scene) {
             return scene.anyDeed([](const Scene::Deed& deed) {
                 return deed.seen.deed == Deed::cancel && deed.seen.isRunning && deed.isPaused;
             });
         }},
        {"cancelled after its outcome",
         [](const Scene& scene) {
             return scene.anyDeed([](const Scene::Deed& deed) {
                 return deed.seen.deed == Deed::cancel && !deed.seen.isRunning && deed.phase != Phase::Waiting;
             });
         }},
        {"a handle dropped under its request",
         [](const Scene& scene) {
             return scene.anyJourney([](const Journey& one) { return one.request.handle != 0 && one.told.cancelled; });
         }},
        {"paused while its name was looked up", done<Deed::pause, Phase::Resolving>},
        {"paused while connecting", done<Deed::pause, Phase::Connecting>},
        {"paused waiting for the answer", done<Deed::pause, Phase::Asked>},
        {"paused inside the head", done<Deed::pause, Phase::InHead>},
        {"paused inside the body", done<Deed::pause, Phase::InBody>},
        {"paused while repeated", pausedWhileRepeated},
        {"broken off while paused", brokenOffWhilePaused},
        {"paused inside the body, resumed and served", pausedAndServed},
        {"settled while busy", settled<true>},
        {"settled while idle", settled<false>},
        {"settled with outcomes on their way",
         [](const Scene& scene) {
             return scene.anyDeed(
                 [](const Scene::Deed& deed) { return deed.seen.deed == Deed::settle && deed.seen.isQueued; });
         }},
    };
}

}  // namespace kel::http::simulation
