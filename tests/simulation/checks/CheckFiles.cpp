// SPDX-License-Identifier: MIT
#include "checks/CheckFiles.h"

#include <algorithm>

#include "model/Murky.h"
#include "parties/Answer.h"
#include "parties/Bytes.h"
#include "parties/Configs.h"

namespace kel::http::simulation {
namespace {

using Faults = std::vector<std::string>;

// One download with what was there, what is, and what came of it.
struct Download {
    const Script& script;
    const Observation& seen;
    const RequestScript& request;
    const SeenRequest& told;
    std::string old;
    bool is_there;
    std::string now;

    void complain(const std::string& what, Faults& faults) const {
        faults.push_back("download " + std::to_string(request.id) + ": " + what);
    }
};

// A body that ends with its connection may end anywhere, and nobody can tell.
bool isBodyOf(const ReplyScript& reply, std::size_t arrival, const std::string& content) {
    if (isWithoutBody(reply.status) && (content.empty() || reply.challenge == Challenge::none)) return content.empty();
    const std::string body = answerBody(reply.exchange, arrival, reply.body);
    if (content == body) return true;
    return reply.framing == Framing::close && reply.cut == Cut::close && body.compare(0, content.size(), content) == 0;
}

// Nobody gets the page of a redirect that is followed. More may have arrived than is told of, as a request may be sent again.
bool isWholeBody(const Download& download, const std::string& content) {
    std::map<std::int64_t, std::size_t> counts;
    bool is_known = false;
    for (const Arrival& arrival : download.seen.arrivals) {
        if (arrival.request != download.request.id) continue;
        const std::size_t number = counts[arrival.exchange]++;
        is_known = isBodyOf(download.script.reply(arrival.exchange, number), number, content);
    }
    return is_known;
}

void checkReplacing(const Download& download, Faults& faults) {
    const bool had = download.request.download == 2;
    const bool is_old = download.is_there == had && download.now == download.old;
    const bool may_be_any = isMurkyOutside(download.script, download.request);
    const bool is_new = download.is_there && (may_be_any || isWholeBody(download, download.now));
    if (!is_old && !is_new) return download.complain("its file is neither the old one nor the new one", faults);
    if (download.told.outcomes.empty()) return;
    const SeenOutcome& outcome = download.told.outcomes.front();
    if (outcome.isError && !is_old) download.complain("it has failed and its file is another one", faults);
    if (!outcome.isError && !is_new) download.complain("it has ended well without the new file", faults);
}

// What the last server to be asked has sent is what may be behind it.
bool isRest(const Download& download, const std::string& rest, bool is_whole) {
    std::map<std::int64_t, std::size_t> counts;
    bool is_known = false;
    for (const Arrival& arrival : download.seen.arrivals) {
        if (arrival.request != download.request.id) continue;
        const std::size_t number = counts[arrival.exchange]++;
        const ReplyScript reply = download.script.reply(arrival.exchange, number);
        const std::string body = answerBody(arrival.exchange, number, reply.body);
        const std::size_t begin = std::min(download.old.size(), body.size());
        const bool may_end = !is_whole || (reply.framing == Framing::close && reply.cut == Cut::close);
        is_known = may_end ? body.compare(begin, rest.size(), rest) == 0 : body.substr(begin) == rest;
    }
    return is_known;
}

// What was there is never touched.
void checkResuming(const Download& download, Faults& faults) {
    const SeenRequest& told = download.told;
    const bool may_come = !told.isChanged && download.old.empty();
    const bool may_begin_anew = isMurkyOutside(download.script, download.request);
    if (told.isRemoved && download.is_there && !download.old.empty() && !may_begin_anew)
        return download.complain("its file was removed and is there again", faults);
    if (!told.isRemoved && !download.is_there && !may_come)
        return download.complain("the file that it resumes has gone", faults);
    const std::string before = told.isRemoved ? std::string() : told.isChanged ? told.changed : download.old;
    if (download.now.compare(0, before.size(), before) != 0)
        return download.complain("what was in its file before has changed", faults);
    if (told.isChanged || download.now.size() == before.size()) return;
    if (isMurkyOutside(download.script, download.request)) return;
    const bool is_whole = !told.outcomes.empty() && !told.outcomes.front().isError;
    if (!isRest(download, download.now.substr(before.size()), is_whole))
        download.complain("what follows in its file is not the rest", faults);
}

std::string hexOf(std::uint64_t value) {
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4)
        text += "0123456789abcdef"[(value >> static_cast<unsigned>(shift)) & 15U];
    return text;
}

void checkDigest(const Download& download, Faults& faults) {
    for (const SeenOutcome& outcome : download.told.outcomes) {
        if (outcome.isError) continue;
        const bool has_one = download.script.world.digest != 0 && download.request.download < 3;
        const std::string wanted = has_one ? hexOf(fingerprint(outcome.body)) : std::string();
        if (outcome.digest != wanted) download.complain("its checksum is " + outcome.digest, faults);
    }
}

void checkSiblings(const Download& download, const std::string& target, Faults& faults) {
    const auto& files = download.seen.contents;
    if (files.count(target + '.') != 0) download.complain("an empty file is left beside its own", faults);
    if (files.count(target + ".downloading-") == 0) return;
    if (download.request.keepPartial == 0) download.complain("a part of it is left", faults);
    if (!download.told.outcomes.empty() && !download.told.outcomes.front().isError)
        download.complain("it has ended well and a part of it is left", faults);
}

void checkProgress(const Download& download, Faults& faults) {
    auto most = static_cast<std::int64_t>(refused_part.size());
    for (const ReplyScript& reply : download.script.replies) most = std::max(most, reply.body);
    most += static_cast<std::int64_t>(std::max(download.old.size(), download.told.changed.size()));
    if (download.told.mostProgress > most) download.complain("it hears of more bytes than there are", faults);
}

void checkDownload(const Script& script, const Observation& seen, const RequestScript& request, Faults& faults) {
    const auto told = seen.requests.find(request.id);
    if (told == seen.requests.end() || !told->second.started) return;
    const std::string target = targetOf(request);
    const auto file = seen.contents.find(target);
    const bool is_there = file != seen.contents.end();
    const Download download{script,
                            seen,
                            request,
                            told->second,
                            oldTarget(script, request),
                            is_there,
                            is_there ? file->second : std::string()};
    checkProgress(download, faults);
    if (request.download >= 3) {
        checkResuming(download, faults);
    } else {
        checkReplacing(download, faults);
    }
    checkDigest(download, faults);
    checkSiblings(download, target, faults);
}

}  // namespace

void checkFiles(const Script& script, const Observation& seen, Faults& faults) {
    for (const RequestScript& request : script.requests) {
        if (request.download != 0 && request.own == 0) checkDownload(script, seen, request, faults);
    }
    if (seen.contents.count("httpcookies.new") != 0) faults.emplace_back("a part of the cookie file is left");
}

}  // namespace kel::http::simulation
