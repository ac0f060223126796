// SPDX-License-Identifier: MIT
#include "checks/CheckProgress.h"

#include <algorithm>

#include "parties/Answer.h"
#include "parties/Bytes.h"
#include "parties/Configs.h"

namespace kel::http::simulation {
namespace {

using Faults = std::vector<std::string>;

// One download whose files nobody has changed.
struct Download {
    const Script& script;
    const Observation& seen;
    const RequestScript& request;
    const SeenRequest& told;
    // Bytes that were there before.
    std::int64_t before = 0;

    void complain(const std::string& what, Faults& faults) const {
        faults.push_back("download " + std::to_string(request.id) + ": " + what);
    }
    bool isResumed() const { return request.download >= 3; }
    const SeenOutcome* response() const {
        return told.outcomes.empty() || told.outcomes.front().isError ? nullptr : &told.outcomes.front();
    }
};

std::string text(const SeenProgress& report) {
    return std::to_string(report.received) + " of " + std::to_string(report.total) + " bytes";
}

// The size of what comes is not known when only that is told which was there.
bool isBeyond(const Download& download, const SeenProgress& report) {
    const bool is_unknown = report.total == 0 || (download.isResumed() && report.total == download.before);
    return !is_unknown && report.received > report.total;
}

void checkReports(const Download& download, Faults& faults) {
    for (const SeenProgress& report : download.told.reports) {
        if (isBeyond(download, report)) return download.complain("it hears of " + text(report), faults);
    }
}

// The reply to the only request there was, which its length was sent with.
bool answered(const Download& download, ReplyScript& reply) {
    const auto is_own = [&](const Arrival& arrival) { return arrival.request == download.request.id; };
    const auto& arrivals = download.seen.arrivals;
    if (std::count_if(arrivals.begin(), arrivals.end(), is_own) != 1) return false;
    reply = download.script.reply(download.request.exchange, 0);
    return reply.lie == Lie::none && reply.challenge == Challenge::none;
}

void checkLast(const Download& download, const ReplyScript& reply, Faults& faults) {
    const auto brought = static_cast<std::int64_t>(download.response()->body.size()) - download.before;
    const bool is_told = reply.framing == Framing::length && brought > 0 && download.response()->status / 100 == 2;
    if (!is_told) return;
    if (download.told.reports.empty()) return download.complain("it hears of no progress", faults);
    const SeenProgress last = download.told.reports.back();
    if (last.total != brought || last.received != brought)
        download.complain("the last that it hears is " + text(last) + ", and it was " + std::to_string(brought),
                          faults);
}

// A server that knows ranges has sent what was missing. Where its end is that of its connection nobody can tell.
void checkWhole(const Download& download, const ReplyScript& reply, Faults& faults) {
    const bool may_close = reply.cut == Cut::close || download.script.host(download.request.host).tlsCut == Cut::close;
    if (reply.framing == Framing::close && may_close) return;
    const bool goes_on = download.isResumed() && reply.range == Range::right && download.response()->status == 206;
    if (!goes_on) return;
    const std::string whole = oldTarget(download.script, download.request) +
                              answerBody(reply.exchange, 0, reply.body)
                                  .substr(static_cast<std::size_t>(std::min(download.before, reply.body)));
    if (download.response()->body != whole) download.complain("its file is not the old part and the rest", faults);
}

}  // namespace

void checkProgress(const Script& script, const Observation& seen, Faults& faults) {
    for (const RequestScript& request : script.requests) {
        const auto told = seen.requests.find(request.id);
        if (request.download == 0 || request.own != 0 || told == seen.requests.end() || told->second.isChanged)
            continue;
        Download download{script, seen, request, told->second};
        if (download.isResumed()) download.before = static_cast<std::int64_t>(oldTarget(script, request).size());
        checkReports(download, faults);
        ReplyScript reply;
        if (download.response() == nullptr || !answered(download, reply)) continue;
        checkLast(download, reply, faults);
        checkWhole(download, reply, faults);
    }
}

}  // namespace kel::http::simulation
