// SPDX-License-Identifier: MIT
#include "checks/Scene.h"

#include <map>
#include <set>

#include "parties/Answer.h"
#include "parties/HttpServer.h"

namespace kel::http::simulation {
namespace {

std::string wireOf(const Script& script, const Visit& visit, std::size_t number) {
    const ReplyScript& reply = visit.reply;
    const std::string location =
        reply.location < 0 ? std::string()
                           : HttpServers::url(script, reply.locationHost, reply.location, visit.arrival->request);
    return answerBytes(reply, number, location);
}

std::size_t sentBy(const Visit& visit, Time at) {
    const ReplyScript& reply = visit.reply;
    const Time begin = visit.arrival->at + Time(reply.delay);
    if (at < begin) return 0;
    if (reply.piece <= 0 || reply.gap <= 0) return visit.size;
    const auto pieces = static_cast<std::size_t>((at - begin).count() / reply.gap + 1);
    return std::min(visit.size, pieces * static_cast<std::size_t>(reply.piece));
}

}  // namespace

Scene::Scene(const Script& told_script, const Observation& observation) : script(told_script), seen(observation) {
    for (const RequestScript& request : script.requests) {
        const auto told = seen.requests.find(request.id);
        if (told == seen.requests.end()) continue;
        Journey& journey = journeys.emplace_back();
        journey.request = request;
        journey.told = told->second;
        addVisits(journey);
        const Time end = journey.outcome() != nullptr ? journey.outcome()->at : journey.told.cancelledAt;
        journey.phaseAtEnd = phaseAt(journey, end);
        journey.wasPausedAtEnd = isPaused(request.id, end);
    }
    for (const SeenDeed& deed : seen.deeds) {
        const Journey* const of = journey(deed.request);
        if (of != nullptr) deeds.push_back({deed, phaseAt(*of, deed.at), isPaused(deed.request, deed.at)});
    }
}

void Scene::addVisits(Journey& journey) const {
    std::map<std::int64_t, std::size_t> numbers;
    std::set<std::int64_t> connections;
    for (const Arrival& arrival : seen.arrivals) {
        const bool is_used = !connections.insert(arrival.connection).second;
        if (arrival.request != journey.request.id) continue;
        Visit& visit = journey.visits.emplace_back();
        visit.arrival = &arrival;
        visit.isUsed = is_used;
        const std::size_t number = numbers[arrival.exchange]++;
        visit.isRepeat = number > 0;
        visit.reply = script.reply(arrival.exchange, number);
        std::string wire = wireOf(script, visit, number);
        const bool is_calm = script.world.calmAt > 0 && arrival.at - seen.begin >= Time(script.world.calmAt);
        visit.isCut =
            visit.reply.cut != Cut::none && visit.reply.cutAt < static_cast<std::int64_t>(wire.size()) && !is_calm;
        if (visit.isCut) wire.resize(static_cast<std::size_t>(visit.reply.cutAt));
        visit.size = wire.size();
        visit.reading = readAnswer(wire);
    }
}

Phase Scene::phaseAt(const Journey& journey, Time at) const {
    const Visit* now = nullptr;
    for (const Visit& visit : journey.visits) {
        if (visit.arrival->at <= at) now = &visit;
    }
    if (!journey.told.started || at < journey.told.startedAt) return Phase::Waiting;
    if (now == nullptr) {
        const HostScript host = script.host(journey.request.host);
        const bool resolves = host.named != 0 && at < journey.told.startedAt + Time(host.nameDelay);
        return resolves ? Phase::Resolving : Phase::Connecting;
    }
    const std::size_t sent = sentBy(*now, at);
    if (sent == 0) return Phase::Asked;
    if (now->reading.status == 0 || sent < now->reading.head) return Phase::InHead;
    return sent < now->size || !now->reading.isWhole ? Phase::InBody : Phase::Answered;
}

bool Scene::isPaused(std::int64_t request, Time at) const {
    bool paused = false;
    for (const SeenDeed& deed : seen.deeds) {
        if (deed.request != request || deed.at > at) continue;
        if (deed.deed == simulation::Deed::pause && deed.isRunning) paused = true;
        if (deed.deed == simulation::Deed::resume) paused = false;
    }
    return paused;
}

Time Scene::resumedAfter(std::int64_t request, Time at) const {
    for (const SeenDeed& deed : seen.deeds) {
        if (deed.request == request && deed.deed == simulation::Deed::resume && deed.at >= at) return deed.at;
    }
    return seen.end;
}

const Journey* Scene::journey(std::int64_t request) const {
    const auto found = std::find_if(journeys.begin(), journeys.end(),
                                    [request](const Journey& one) { return one.request.id == request; });
    return found == journeys.end() ? nullptr : &*found;
}

}  // namespace kel::http::simulation
