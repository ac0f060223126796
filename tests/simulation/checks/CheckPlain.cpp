// SPDX-License-Identifier: MIT
#include "checks/CheckPlain.h"

#include <algorithm>

#include "checks/Plain.h"
#include "model/Model.h"
#include "parties/Answer.h"
#include "parties/Bytes.h"

namespace kel::http::simulation {
namespace {

using Faults = std::vector<std::string>;

constexpr Time margin = std::chrono::milliseconds(50);

// One request, with all that became of it.
struct Told {
    const Script& script;
    const Observation& seen;
    const RequestScript& request;
    const SeenRequest& what;
    // The last one, and its number.
    const Arrival* arrival = nullptr;
    std::size_t number = 0;

    void complain(const std::string& text, Faults& faults) const {
        faults.push_back("request " + std::to_string(request.id) + ": " + text);
    }
    ReplyScript reply() const { return script.reply(arrival->exchange, number); }
    // A handle can not be paused.
    bool canBePaused() const { return request.own != 0 || request.handle == 0; }
};

Told toldOf(const Script& script, const Observation& seen, const RequestScript& request) {
    Told told{script, seen, request, seen.requests.at(request.id)};
    for (const Arrival& arrival : seen.arrivals) {
        if (arrival.request != request.id) continue;
        const bool is_next = told.arrival != nullptr && told.arrival->exchange == arrival.exchange;
        told.number = is_next ? told.number + 1 : 0;
        told.arrival = &arrival;
    }
    return told;
}

// Whether it was under way and paused all the time from then on.
bool isPausedFrom(const Told& told, Time from, Time until) {
    if (!told.canBePaused()) return false;
    bool paused = false;
    for (const SeenDeed& deed : told.seen.deeds) {
        if (deed.request != told.request.id || deed.at > until) continue;
        if (deed.deed == Deed::resume) paused = false;
        if (deed.deed == Deed::pause && deed.isRunning && deed.at < from) paused = true;
    }
    return paused;
}

bool wasEverPaused(const Told& told) {
    return std::any_of(told.seen.deeds.begin(), told.seen.deeds.end(), [&told](const SeenDeed& deed) {
        return deed.request == told.request.id && deed.deed == Deed::pause;
    });
}

// Who has paused before the first byte came gets none of the body until it resumes.
void checkPause(const Told& told, Faults& faults) {
    if (told.arrival == nullptr || told.request.download >= 3 || told.what.runs.size() > 1) return;
    for (const SeenOutcome& outcome : told.what.outcomes) {
        if (outcome.isError || outcome.body.empty()) continue;
        if (isPausedFrom(told, told.arrival->at + Time(told.reply().delay), outcome.at))
            told.complain("it has a response with a body though it is paused", faults);
    }
}

void checkError(const Told& told, const SeenOutcome& outcome, Faults& faults) {
    const bool has_limit = told.request.timeout > 0 && outcome.failure == end::timeout;
    if (has_limit) return;
    told.complain("it fails with " + std::to_string(outcome.failure) + ", '" + outcome.message +
                      "', though nothing stands in its way",
                  faults);
}

void checkResponse(const Told& told, const SeenOutcome& outcome, Faults& faults) {
    if (told.arrival == nullptr) return told.complain("it has a response that nobody sent", faults);
    const ReplyScript reply = told.reply();
    if (outcome.status != reply.status)
        told.complain("it has status " + std::to_string(outcome.status) + " instead of " + std::to_string(reply.status),
                      faults);
    const std::int64_t size = isWithoutBody(reply.status) ? 0 : reply.body;
    if (outcome.body != answerBody(reply.exchange, told.number, size))
        told.complain("it has another body than that of its answer", faults);
    if (wasEverPaused(told)) return;
    const Time late = outcome.at - told.arrival->at - lengthOf(reply, told.number);
    if (late > margin)
        told.complain("its outcome comes " + std::to_string(late.count()) + " us behind the last byte", faults);
}

void checkOutcome(const Told& told, Faults& faults) {
    for (const SeenOutcome& outcome : told.what.outcomes) {
        if (outcome.isError) {
            checkError(told, outcome, faults);
        } else {
            checkResponse(told, outcome, faults);
        }
    }
}

void checkWay(const Told& told, Faults& faults) {
    if (told.arrival == nullptr || told.what.runs.size() > 1 || wasEverPaused(told)) return;
    const Time late = told.arrival->at - told.what.startedAt - Time(told.script.host(told.request.host).connectDelay);
    if (late > margin)
        told.complain("it reaches its server " + std::to_string(late.count()) + " us later than it could", faults);
}

// Connections that break cost a moment, and the answer at worst.
void checkEnd(const Told& told, Faults& faults) {
    if (!told.what.givenUp || isPausedFrom(told, Never, Never)) return;
    told.complain("it has never ended, though nothing stands in its way", faults);
}

}  // namespace

void checkPlain(const Script& script, const Observation& seen, Faults& faults) {
    for (const RequestScript& request : script.requests) {
        if (seen.requests.count(request.id) == 0) continue;
        const Told told = toldOf(script, seen, request);
        checkPause(told, faults);
        if (isPlain(script, request, Nuisance::resets)) checkEnd(told, faults);
        if (!isPlain(script, request, Nuisance::none)) continue;
        checkWay(told, faults);
        checkOutcome(told, faults);
    }
}

}  // namespace kel::http::simulation
