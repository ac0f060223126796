// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ScriptNetwork.h"
#include "ScriptWorld.h"

namespace kel::http::simulation {

// What happens in one world, as plain numbers: made from a seed, written as text, read again, cut down. Times are in
// microseconds, `at` since the world's beginning. What refers to another record names its id; where there is none, the
// default of that record counts, so that a script stays one when records are taken away.
//
// Each record shows its fields to a visitor by name: visitor("status", status). Whatever is not named in a text has its
// default.

enum class Framing : std::uint8_t { length, chunked, close };
enum class Verb : std::uint8_t { GET, POST, PUT, PATCH, DELETE };
// The last three are done to the files of a request: that which it goes on with, or those that it sends.
enum class Deed : std::uint8_t {
    cancel,
    pause,
    resume,
    settle,
    dropClient,
    destroyEngine,
    rerun,
    queue,
    listen,
    endExecutor,
    grow,
    shrink,
    remove
};
// When: at its time, or inside of a callback of another request.
enum class Moment : std::uint8_t { time, outcome, response, error, progress, header, data };

std::string_view nameOf(Framing value);
std::string_view nameOf(Verb value);
std::string_view nameOf(Deed value);
std::string_view nameOf(Moment value);

// A machine that listens: 10.0.0.(id + 1), port 80.
struct HostScript {
    std::int64_t id = 0;
    Connect connect = Connect::accept;
    std::int64_t connectDelay = 1000;
    // So many answers on a connection, then it is closed; 0: any number.
    std::int64_t answers = 0;
    // The connection is closed so long after an answer; 0: never.
    std::int64_t idle = 0;
    // Bytes that one call receives or sends at most, and every so many-th call is interrupted; 0: no limit, none.
    std::int64_t mostReceived = 0;
    std::int64_t mostSent = 0;
    std::int64_t interrupted = 0;
    // 1: reached by the name "host-ID", which takes so long to look up, and cannot be found if it fails.
    std::int64_t named = 0;
    std::int64_t nameDelay = 0;
    std::int64_t nameFails = 0;
    // The name leads to so many other addresses first, where nobody listens, or nobody answers.
    std::int64_t deadAddresses = 0;
    Connect deadConnect = Connect::refuse;
    // 1: speaks TLS, at port 443. Behind so many bytes of its own it falls silent or closes; 0: never.
    std::int64_t tls = 0;
    std::int64_t tlsCutAt = 0;
    Cut tlsCut = Cut::none;
    // 1: its certificate is another host's.
    std::int64_t tlsWrong = 0;
    // Behind an answer a connection takes the head of the next request, but nothing of its body, and breaks so long after;
    // 0: never.
    std::int64_t headOnly = 0;

    static constexpr std::string_view word = "host";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("id", id);
        visitor("connect", connect);
        visitor("connectDelay", connectDelay);
        visitor("answers", answers);
        visitor("idle", idle);
        visitor("mostReceived", mostReceived);
        visitor("mostSent", mostSent);
        visitor("interrupted", interrupted);
        visitor("named", named);
        visitor("nameDelay", nameDelay);
        visitor("nameFails", nameFails);
        visitor("deadAddresses", deadAddresses);
        visitor("deadConnect", deadConnect);
        visitor("tls", tls);
        visitor("tlsCutAt", tlsCutAt);
        visitor("tlsCut", tlsCut);
        visitor("tlsWrong", tlsWrong);
        visitor("headOnly", headOnly);
    }
};

// The answer to a request for an exchange. Several of one exchange answer in turn, the last one goes on.
struct ReplyScript {
    std::int64_t exchange = 0;
    std::int64_t status = 200;
    Framing framing = Framing::length;
    std::int64_t body = 0;
    // Interim answers (103) before, header lines beside the usual, trailer lines (chunked only).
    std::int64_t interims = 0;
    std::int64_t headers = 0;
    std::int64_t trailers = 0;
    // Leads to this exchange on that host, if it is a redirect; -1: no Location.
    std::int64_t location = -1;
    std::int64_t locationHost = 0;
    // Before the first byte; then pieces of so many bytes (0: all at once) with a gap between.
    std::int64_t delay = 1000;
    std::int64_t piece = 0;
    std::int64_t gap = 0;
    // What happens behind so many bytes of the whole answer instead of the rest.
    Cut cut = Cut::none;
    std::int64_t cutAt = 0;
    // So many cookies are set.
    std::int64_t cookies = 0;
    // Of the interim answers.
    std::int64_t interimStatus = 103;
    Lie lie = Lie::none;
    // Without credentials that suit, a 401 with the same body comes in its place; it counts as an arrival of its own.
    Challenge challenge = Challenge::none;
    // Where a request asks for a part of the body.
    Range range = Range::ignored;

    static constexpr std::string_view word = "reply";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("exchange", exchange);
        visitor("status", status);
        visitor("framing", framing);
        visitor("body", body);
        visitor("interims", interims);
        visitor("headers", headers);
        visitor("trailers", trailers);
        visitor("location", location);
        visitor("locationHost", locationHost);
        visitor("delay", delay);
        visitor("piece", piece);
        visitor("gap", gap);
        visitor("cut", cut);
        visitor("cutAt", cutAt);
        visitor("cookies", cookies);
        visitor("interimStatus", interimStatus);
        visitor("lie", lie);
        visitor("challenge", challenge);
        visitor("range", range);
    }
};

// What a caller starts.
struct RequestScript {
    std::int64_t id = 0;
    std::int64_t at = 0;
    std::int64_t client = 0;
    std::int64_t host = 0;
    std::int64_t exchange = 0;
    Verb verb = Verb::GET;
    std::int64_t body = 0;
    // Milliseconds; 0: none.
    std::int64_t timeout = 0;
    // -1: none.
    std::int64_t sizeLimit = -1;
    std::int64_t callerRedirects = 0;
    std::int64_t freshState = 0;
    // 1: to a file; 2: to one that replaces another; 3: going on with the first part of the body; 4: of something else.
    std::int64_t download = 0;
    // 1: kept by a handle instead of an id.
    std::int64_t handle = 0;
    // Bytes of the file that is there before; 1: what arrived is kept though the rest did not.
    std::int64_t present = 0;
    std::int64_t keepPartial = 0;
    // 1: a kel::http::Request of the caller's own.
    std::int64_t own = 0;
    // So many parts of a form; of these bits those from files.
    std::int64_t form = 0;
    std::int64_t formFiles = 0;
    // PUT: 1: from a file; 2: from one that is not there.
    std::int64_t bodyFile = 0;
    // As CookieJar has them.
    std::int64_t cookies = 1;
    // Bytes per second; 0: none.
    std::int64_t speedLimit = 0;
    std::int64_t timing = 0;
    // 1: one of its own; 2: one that is not to be sent; 3: one that no request may have.
    std::int64_t headers = 0;
    // 1: malformed; 2: of another scheme; 3: with a zero byte; 4: none.
    std::int64_t badUrl = 0;
    // Started inside of the callback that tells the outcome of this request, in place of its time; -1: at its time.
    std::int64_t after = -1;
    // The proxies to be tried, a digit each, in order: 31 is number 3, then number 1. Where the mode is manual, any number
    // means the engine's. 0: straight.
    std::int64_t proxies = 0;
    // Credentials for the server, and by which way it may be told (basic only, any, any with a wrong password).
    Login login = Login::none;

    static constexpr std::string_view word = "request";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("id", id);
        visitor("at", at);
        visitor("client", client);
        visitor("host", host);
        visitor("exchange", exchange);
        visitor("verb", verb);
        visitor("body", body);
        visitor("timeout", timeout);
        visitor("sizeLimit", sizeLimit);
        visitor("callerRedirects", callerRedirects);
        visitor("freshState", freshState);
        visitor("download", download);
        visitor("handle", handle);
        visitor("present", present);
        visitor("keepPartial", keepPartial);
        visitor("own", own);
        visitor("form", form);
        visitor("formFiles", formFiles);
        visitor("bodyFile", bodyFile);
        visitor("cookies", cookies);
        visitor("speedLimit", speedLimit);
        visitor("timing", timing);
        visitor("headers", headers);
        visitor("badUrl", badUrl);
        visitor("after", after);
        visitor("proxies", proxies);
        visitor("login", login);
    }
};

// What a caller does to a request.
struct ActionScript {
    std::int64_t at = 0;
    Deed deed = Deed::cancel;
    std::int64_t request = 0;
    // Not at its time but the first time that this happens to that request.
    Moment when = Moment::time;
    std::int64_t whose = 0;

    static constexpr std::string_view word = "action";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("at", at);
        visitor("deed", deed);
        visitor("request", request);
        visitor("when", when);
        visitor("whose", whose);
    }
};

struct Script {
    OrderScript world;
    std::vector<HostScript> hosts;
    std::vector<ReplyScript> replies;
    std::vector<RequestScript> requests;
    std::vector<ActionScript> actions;
    std::vector<ProxyScript> proxies;
    std::vector<TroubleScript> troubles;

    // The records of one id; what is not there is the default.
    HostScript host(std::int64_t id) const;
    ReplyScript reply(std::int64_t exchange, std::size_t arrival) const;
    const RequestScript* request(std::int64_t id) const;
    ProxyScript proxy(std::int64_t id) const;
};

// A line for each record: "reply exchange=3 status=404".
std::string print(const Script& script);
// Throws std::invalid_argument, naming the line.
Script parse(const std::string& text);

// The world of a seed.
Script generate(std::uint64_t seed);

}  // namespace kel::http::simulation
