// SPDX-License-Identifier: MIT
#include "model/Model.h"

#include <algorithm>

#include "model/Known.h"
#include "parties/Answer.h"
#include "parties/HttpServer.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t most_redirects = 5;
constexpr std::int64_t most_repetitions = 5;
// A server that says nothing to a request with a large body is given a second before the body goes on its way.
constexpr Time expectation = std::chrono::seconds(1);
// What waking up at the right time may cost for each stage.
constexpr Time slack = std::chrono::milliseconds(300);

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// When so many bytes of an answer have come.
Time timeOf(const ReplyScript& reply, std::size_t bytes) {
    if (reply.piece <= 0 || bytes == 0) return Time(reply.delay);
    const auto gaps = (static_cast<std::int64_t>(bytes) - 1) / reply.piece;
    return Time(reply.delay) + gaps * Time(reply.gap);
}

Time sum(Time one, Time other) {
    return one == Never || other == Never ? Never : one + other;
}

std::string wireOf(const Script& script, const RequestScript& request, const ReplyScript& reply, std::size_t number) {
    const std::string location =
        reply.location < 0 ? std::string() : HttpServers::url(script, reply.locationHost, reply.location, request.id);
    return answerBytes(reply, number, location);
}

bool isCutShort(const ReplyScript& reply, const std::string& wire) {
    return reply.cut != Cut::none && reply.cutAt < static_cast<std::int64_t>(wire.size());
}

}  // namespace

bool Model::knows(const RequestScript& request) const {
    return isKnown(script_, request);
}

Stage Model::first(const RequestScript& request) const {
    return {request.host, request.exchange, std::string(nameOf(request.verb)), request.verb != Verb::GET, 0};
}

// A POST turns into a GET after 301, 302 and 303, any other into one after 303. Who sets its method by name keeps it, but
// its body goes as that of a POST does.
Stage Model::after(const RequestScript& request, const Stage& stage, const ReplyScript& reply) const {
    Stage next = stage;
    next.host = reply.locationHost;
    next.exchange = reply.location;
    ++next.followed;
    const bool is_put = request.verb == Verb::PUT;
    if (reply.status == 303 || ((reply.status == 301 || reply.status == 302) && !is_put)) next.hasBody = false;
    const bool keeps_name = request.verb == Verb::PATCH || request.verb == Verb::DELETE;
    if (!next.hasBody && !keeps_name) next.method = "GET";
    return next;
}

std::vector<int> Model::failuresBefore(const Stage& stage, Time begun) const {
    const HostScript host = script_.host(stage.host);
    if (isCalm(begun)) return {};
    if (host.named != 0 && host.nameFails != 0) return {end::resolve_failed};
    if (host.connect == Connect::refuse) return {end::connect_failed};
    return {};
}

bool Model::follows(const RequestScript& request, const Reading& reading) const {
    return request.callerRedirects == 0 && isRedirect(reading.begun) && !reading.header("location").empty();
}

// Broken off before its head was whole: an error, unless the connection had served before and not one line of the answer has
// come. libcurl takes that for an idle connection's end, a piece of a line included.
void Model::judgeBreak(const ReplyScript& reply, bool is_used, Consequence& result) {
    result.lasts = reply.cut == Cut::stall;
    if (result.lasts) return;
    result.repeats = is_used && !result.reading.hasBegun;
    if (!result.repeats) result.failures = {end::other};
}

void Model::goOn(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                 Consequence& result) const {
    if (stage.followed < most_redirects) {
        result.next = after(request, stage, reply);
    } else {
        result.failures = {end::other};
    }
}

void Model::judgeRedirect(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                          Consequence& result) const {
    const bool goes_at_once = result.reading.closes;
    const bool is_cut = !result.reading.isWhole && !goes_at_once;
    if (is_cut && reply.cut == Cut::stall) {
        result.lasts = true;
        return;
    }
    goOn(request, stage, reply, result);
    // A page that nobody will see may break off, or may be missed.
    if (is_cut || reply.cut == Cut::reset) result.failures = {end::other};
}

void Model::judgeBody(const RequestScript& request, const ReplyScript& reply, bool is_cut, Consequence& result) const {
    const Reading& reading = result.reading;
    const auto size = static_cast<std::int64_t>(reading.body.size());
    if (request.sizeLimit >= 0 && size > request.sizeLimit) {
        result.failures = {end::write_failed};
    } else if (is_cut && reply.cut == Cut::stall && !reading.isWhole) {
        result.lasts = true;
    } else if (reading.isWhole || (reading.isEndedByClose() && !(is_cut && reply.cut == Cut::reset))) {
        result.response = true;
    } else {
        result.failures = {end::other};
    }
}

Consequence Model::consequence(const RequestScript& request, const Stage& stage, std::size_t number, bool is_used,
                               Time asked) const {
    const ReplyScript reply = script_.reply(stage.exchange, number);
    std::string wire = wireOf(script_, request, reply, number);
    const bool is_cut = isCutShort(reply, wire) && !isCalm(asked);
    if (is_cut) wire.resize(static_cast<std::size_t>(reply.cutAt));
    Consequence result;
    result.reading = readAnswer(wire);
    const Reading& reading = result.reading;
    result.first = timeOf(reply, wire.size());
    if (reading.status == 0) {
        judgeBreak(reply, is_used, result);
        // libcurl has read where it leads, and goes there without the rest of the head.
        if (follows(request, reading) && reply.cut == Cut::close) goOn(request, stage, reply, result);
    } else if (request.sizeLimit > 0 && reading.announced > request.sizeLimit) {
        result.failures = {end::other};
        result.message = "Maximum file size exceeded";
        result.first = timeOf(reply, 0);
    } else if (follows(request, reading)) {
        result.first = timeOf(reply, reading.closes ? reading.head : wire.size());
        judgeRedirect(request, stage, reply, result);
    } else {
        judgeBody(request, reply, is_cut, result);
        if (!result.response) result.first = timeOf(reply, 0);
    }
    return result;
}

Time Model::shortestReach(std::int64_t host, bool knows_name) const {
    const HostScript known = script_.host(host);
    const bool asks = known.named != 0 && !knows_name;
    return Time(known.connectDelay) + (asks ? Time(known.nameDelay) : Time(0));
}

Time Model::longestReach(const Stage& stage) const {
    const HostScript host = script_.host(stage.host);
    const Time name = host.named != 0 ? Time(host.nameDelay) : Time(0);
    const bool is_unknown = host.named != 0 && host.nameFails != 0;
    if (host.connect == Connect::silent && !is_unknown) return Never;
    // A kept connection may turn out to be dead, again and again, each time when it would have been closed anyway.
    return name + expectation + slack + (most_repetitions + 1) * (Time(host.connectDelay) + Time(host.idle));
}

// As if the connection were not used, so that a break ends it; repetitions are counted by whoever asks.
Time Model::longestAnswer(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                          std::size_t number) const {
    const std::string wire = wireOf(script_, request, reply, number);
    const Consequence result = consequence(request, stage, number, false, Time(-1));
    if (result.lasts) return Never;
    const Time here = timeOf(reply, wire.size()) + slack;
    return result.next ? sum(here, longest(request, *result.next)) : here;
}

Time Model::longest(const RequestScript& request, const Stage& stage) const {
    Time answer(0);
    std::size_t number = 0;
    for (const ReplyScript& reply : script_.replies) {
        if (reply.exchange == stage.exchange) answer = std::max(answer, longestAnswer(request, stage, reply, number++));
    }
    const Time reach = longestReach(stage);
    return sum(reach, number == 0 ? slack : answer);
}

Time Model::longestFrom(const RequestScript& request, const Stage& stage, std::size_t number) const {
    const ReplyScript reply = script_.reply(stage.exchange, number);
    const Time here = longestAnswer(request, stage, reply, number);
    const bool may_repeat = consequence(request, stage, number, true, Time(-1)).repeats;
    if (!may_repeat || here == Never) return here;
    return sum(here, longest(request, stage));
}

Time Model::pauses(const RequestScript& request) const {
    std::vector<ActionScript> own;
    std::copy_if(script_.actions.begin(), script_.actions.end(), std::back_inserter(own),
                 [&](const ActionScript& one) { return one.request == request.id; });
    std::stable_sort(own.begin(), own.end(),
                     [](const ActionScript& one, const ActionScript& other) { return one.at < other.at; });
    Time sum(0);
    Time since = Never;
    for (const ActionScript& one : own) {
        if (one.deed == Deed::pause && since == Never) since = Time(one.at);
        if (one.deed == Deed::resume && since != Never) {
            sum += Time(one.at) - since;
            since = Never;
        }
    }
    return since == Never ? sum : Never;
}

}  // namespace kel::http::simulation
