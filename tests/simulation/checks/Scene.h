// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Observation.h"
#include "Script.h"
#include "model/Reading.h"

namespace kel::http::simulation {

// How far a request is.
enum class Phase : std::uint8_t { Waiting, Resolving, Connecting, Asked, InHead, InBody, Answered };

// One request as a server got it, and what that sent.
struct Visit {
    const Arrival* arrival = nullptr;
    ReplyScript reply;
    Reading reading;
    bool isCut = false;
    // On a connection that had served before; for the second time or more.
    bool isUsed = false;
    bool isRepeat = false;
    // Bytes that it sent.
    std::size_t size = 0;
};

// One request of a caller's, told afterwards.
struct Journey {
    RequestScript request;
    SeenRequest told;
    std::vector<Visit> visits;
    // When its outcome came or when it was cancelled.
    Phase phaseAtEnd = Phase::Waiting;
    bool wasPausedAtEnd = false;

    const SeenOutcome* outcome() const { return told.outcomes.empty() ? nullptr : &told.outcomes.front(); }
    bool hasResponse() const { return outcome() != nullptr && !outcome()->isError; }
    bool failedWith(int failure) const {
        return outcome() != nullptr && outcome()->isError && outcome()->failure == failure;
    }
    const Visit* last() const { return visits.empty() ? nullptr : &visits.back(); }
};

// What a caller did, and how far its request was.
struct Scene {
    Scene(const Script& script, const Observation& seen);

    struct Deed {
        SeenDeed seen;
        Phase phase = Phase::Waiting;
        bool isPaused = false;
    };

    template <typename Condition>
    bool anyJourney(Condition condition) const {
        return std::any_of(journeys.begin(), journeys.end(), condition);
    }
    template <typename Condition>
    bool anyVisit(Condition condition) const {
        return anyJourney([&](const Journey& journey) {
            return std::any_of(journey.visits.begin(), journey.visits.end(),
                               [&](const Visit& visit) { return condition(journey, visit); });
        });
    }
    template <typename Condition>
    bool anyDeed(Condition condition) const {
        return std::any_of(deeds.begin(), deeds.end(), condition);
    }
    bool isPaused(std::int64_t request, Time at) const;
    // The next resumption, or the end of the world.
    Time resumedAfter(std::int64_t request, Time at) const;
    const Journey* journey(std::int64_t request) const;
    Phase phaseAt(const Journey& journey, Time at) const;

    const Script& script;
    const Observation& seen;
    std::vector<Journey> journeys;
    std::vector<Deed> deeds;

 private:
    void addVisits(Journey& journey) const;
};

}  // namespace kel::http::simulation
