// SPDX-License-Identifier: MIT
#include "model/Model.h"

#include <algorithm>

#include "model/Known.h"
#include "parties/Answer.h"
#include "parties/Credentials.h"
#include "parties/HttpServer.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t most_redirects = 5;
// Of header lines for one request.
constexpr std::size_t most_lines = 2000;
constexpr std::size_t most_line_bytes = 256 * 1024;

bool isRedirect(int status) {
    return status >= 300 && status < 400;
}

std::string wireOf(const Script& script, const RequestScript& request, const ReplyScript& reply, std::size_t number) {
    const std::string location =
        reply.location < 0 ? std::string() : HttpServers::url(script, reply.locationHost, reply.location, request.id);
    return answerBytes(reply, number, location);
}

bool isCutShort(const ReplyScript& reply, const std::string& wire) {
    return reply.cut != Cut::none && reply.cutAt < static_cast<std::int64_t>(wire.size());
}

// Whether it would tell who it is when it is asked so.
bool canLogIn(Login login, Challenge challenge) {
    return login != Login::none && (login != Login::basic || challenge != Challenge::digest);
}

}  // namespace

bool sendsOnce(const RequestScript& request) {
    return request.verb == Verb::PUT && request.bodyFile != 0 && request.body > 0;
}

// When so many bytes of an answer have come.
Time timeOf(const ReplyScript& reply, std::size_t bytes) {
    if (reply.piece <= 0 || bytes == 0) return Time(reply.delay);
    const auto gaps = (static_cast<std::int64_t>(bytes) - 1) / reply.piece;
    return Time(reply.delay) + gaps * Time(reply.gap);
}

bool Model::knows(const RequestScript& request) const {
    return isKnown(script_, request);
}

Stage Model::first(const RequestScript& request) const {
    return {request.host, request.exchange, std::string(nameOf(request.verb)), request.verb != Verb::GET};
}

// A POST turns into a GET after 301, 302 and 303, any other into one after 303. Who sets its method by name keeps it, but
// its body goes as that of a POST does.
Stage Model::after(const RequestScript& request, const Stage& stage, const ReplyScript& reply) const {
    Stage next = stage;
    next.host = reply.locationHost;
    next.exchange = reply.location;
    next.isLoggedIn = false;
    next.hasMoved = true;
    ++next.followed;
    const bool is_put = request.verb == Verb::PUT;
    if (reply.status == 303 || ((reply.status == 301 || reply.status == 302) && !is_put)) next.hasBody = false;
    const bool keeps_name = request.verb == Verb::PATCH || request.verb == Verb::DELETE;
    if (!next.hasBody && !keeps_name) next.method = "GET";
    return next;
}

std::vector<int> Model::failuresBefore(const Stage& stage, Time begun) const {
    const HostScript host = script_.host(stage.host);
    // No time heals a certificate.
    std::vector<int> failures;
    if (host.tls != 0 && host.tlsWrong != 0) failures.push_back(end::other);
    if (isCalm(begun)) return failures;
    const bool is_unknown = host.named != 0 && host.nameFails != 0;
    if (is_unknown) failures.push_back(end::resolve_failed);
    if (!is_unknown && host.connect == Connect::refuse) failures.push_back(end::connect_failed);
    return failures;
}

bool Model::follows(const RequestScript& request, const Reading& reading) const {
    return request.callerRedirects == 0 && isRedirect(reading.begun) && !reading.header("location").empty();
}

// Broken off before its head was whole: an error, unless the connection had served before and not one line of the answer has
// come. libcurl takes that for an idle connection's end, a piece of a line included.
void Model::judgeBreak(const RequestScript& request, const ReplyScript& reply, bool is_used, Consequence& result) {
    result.lasts = reply.cut == Cut::stall;
    if (result.lasts) return;
    result.repeats = is_used && !result.reading.hasBegun;
    if (!result.repeats || sendsOnce(request)) result.failures = {end::other};
}

// A file that has been sent is not sent once more, which shows when the next server is reached.
void Model::goOn(const RequestScript& request, Stage next, Consequence& result) {
    if (next.followed > most_redirects) {
        result.failures.push_back(end::other);
    } else {
        next.isTooLate = sendsOnce(request) && next.hasBody;
        if (next.isTooLate) result.failures.push_back(end::other);
        result.next = std::move(next);
    }
}

// A page that nobody will see may break off, or may be missed.
void Model::judgePage(const ReplyScript& reply, Consequence& result) {
    const bool is_cut = !result.reading.isWhole && !result.reading.closes;
    result.lasts = is_cut && result.isCut && reply.cut == Cut::stall && !result.reading.isMalformed;
    if (result.lasts) {
        result.next.reset();
    } else if (is_cut || reply.cut == Cut::reset) {
        result.failures.push_back(end::other);
        result.message.clear();
    }
}

// Nobody tells who he is in the same way twice, and who is asked behind a redirect is at most asked once more, without it. It
// counts as a redirect.
void Model::judgeRefusal(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                         Consequence& result) const {
    const bool may = canLogIn(request.login, reply.challenge);
    const bool has_another_way = request.login == Login::any || request.login == Login::wrong;
    if (!may || stage.isLoggedIn || stage.hasMoved) judgeBody(request, reply, result);
    if (!may || (stage.isLoggedIn && !has_another_way)) return;
    Stage next = stage;
    next.isLoggedIn = true;
    ++next.followed;
    goOn(request, std::move(next), result);
    judgePage(reply, result);
}

void Model::judgeRedirect(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                          Consequence& result) const {
    goOn(request, after(request, stage, reply), result);
    judgePage(reply, result);
}

void Model::judgeBody(const RequestScript& request, const ReplyScript& reply, Consequence& result) {
    const Reading& reading = result.reading;
    const auto size = static_cast<std::int64_t>(reading.body.size());
    const bool is_reset = result.isCut && reply.cut == Cut::reset;
    if (request.own == 0 && request.sizeLimit >= 0 && size > request.sizeLimit) {
        result.failures = {end::write_failed};
    } else if (result.isCut && reply.cut == Cut::stall && !reading.isWhole && !reading.isMalformed) {
        result.lasts = true;
    } else if (reading.isWhole || ((reading.isEndedByClose() || reading.lacksLineFeed) && !is_reset)) {
        result.response = true;
    } else {
        result.failures = {end::other};
    }
}

// What ends it by its size, before anybody looks at it.
bool Model::tooMuch(const RequestScript& request, const ReplyScript& reply, Consequence& result) {
    const Reading& reading = result.reading;
    if (reading.headers.size() > most_lines || reading.lineBytes > most_line_bytes) {
        result.failures = {end::other};
        result.message = "The answer has more than";
    } else if (reading.status != 0 && request.sizeLimit > 0 && reading.announced > request.sizeLimit) {
        result.failures = {end::other};
        result.message = "Maximum file size exceeded";
    } else {
        return false;
    }
    result.first = timeOf(reply, 0);
    return true;
}

bool Model::isRefused(const RequestScript& request, const Stage& stage, const Asking& asking,
                      const ReplyScript& reply) const {
    if (reply.challenge == Challenge::none) return false;
    if (!asking.head.empty()) return !satisfies(asking.head, reply.challenge);
    return !stage.isLoggedIn || request.login == Login::wrong;
}

Consequence Model::consequence(const RequestScript& request, const Stage& stage, const Asking& asking) const {
    const ReplyScript reply = script_.reply(stage.exchange, asking.number);
    const bool is_refused = isRefused(request, stage, asking, reply);
    std::string wire =
        is_refused ? challengeBytes(reply, asking.number) : wireOf(script_, request, reply, asking.number);
    Consequence result;
    result.size = wire.size();
    result.isCut = isCutShort(reply, wire) && !isCalm(asking.at);
    if (result.isCut) wire.resize(static_cast<std::size_t>(reply.cutAt));
    result.reading = readAnswer(wire);
    const Reading& reading = result.reading;
    result.first = timeOf(reply, wire.size());
    if (reading.isForeign) {
        result.failures = {end::invalid_url};
        result.first = timeOf(reply, 0);
    } else if (tooMuch(request, reply, result)) {
        return result;
    } else if (reading.status == 0) {
        judgeBreak(request, reply, asking.isUsed, result);
        // libcurl has read where it leads, and goes there without the rest of the head.
        if (follows(request, reading) && reply.cut == Cut::close) goOn(request, after(request, stage, reply), result);
    } else if (is_refused || follows(request, reading)) {
        result.first = timeOf(reply, reading.closes ? reading.head : wire.size());
        is_refused ? judgeRefusal(request, stage, reply, result) : judgeRedirect(request, stage, reply, result);
    } else {
        judgeBody(request, reply, result);
    }
    if (!result.response && !result.next) result.first = timeOf(reply, 0);
    return result;
}

}  // namespace kel::http::simulation
