// SPDX-License-Identifier: MIT
// How long the stages of a request may take.
#include <algorithm>

#include "model/Model.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t most_repetitions = 5;
// A server that says nothing to a request with a large body is given a second before the body goes on its way.
constexpr Time expectation = std::chrono::seconds(1);
// What waking up at the right time may cost for each stage.
constexpr Time slack = std::chrono::milliseconds(300);

Time sum(Time one, Time other) {
    return one == Never || other == Never ? Never : one + other;
}

}  // namespace

Time Model::shortestReach(std::int64_t host, bool knows_name) const {
    const HostScript known = script_.host(host);
    const bool asks = known.named != 0 && !knows_name;
    return Time(known.connectDelay) + (asks ? Time(known.nameDelay) : Time(0));
}

// Nobody knows how long a silent address is waited for before the next one is tried.
Time Model::longestReach(const Stage& stage) const {
    const HostScript host = script_.host(stage.host);
    const Time name = host.named != 0 ? Time(host.nameDelay) : Time(0);
    const bool is_unknown = host.named != 0 && host.nameFails != 0 && script_.world.calmAt == 0;
    const bool begins_silent = host.named != 0 && host.deadAddresses > 0 && host.deadConnect == Connect::silent;
    if ((host.connect == Connect::silent || begins_silent) && !is_unknown) return Never;
    // A kept connection may turn out to be dead, again and again, each time when it would have been closed anyway.
    return name + expectation + slack + (most_repetitions + 1) * (Time(host.connectDelay) + Time(host.idle));
}

// As if the connection were not used, so that a break ends it; repetitions are counted by whoever asks.
Time Model::longestAnswer(const RequestScript& request, const Stage& stage, const Asking& asking) const {
    const Consequence result = consequence(request, stage, asking);
    if (result.lasts) return Never;
    const Time here = timeOf(script_.reply(stage.exchange, asking.number), result.size) + slack;
    return result.next ? sum(here, longest(request, *result.next)) : here;
}

Time Model::longest(const RequestScript& request, const Stage& stage) const {
    Time answer(0);
    Asking asking;
    for (const ReplyScript& reply : script_.replies) {
        if (reply.exchange != stage.exchange) continue;
        answer = std::max(answer, longestAnswer(request, stage, asking));
        ++asking.number;
    }
    return sum(longestReach(stage), asking.number == 0 ? slack : answer);
}

Time Model::longestFrom(const RequestScript& request, const Stage& stage, const Asking& asking) const {
    Asking alone = asking;
    alone.isUsed = false;
    alone.at = Time(-1);
    const Time here = longestAnswer(request, stage, alone);
    alone.isUsed = true;
    if (here == Never || !consequence(request, stage, alone).repeats) return here;
    return sum(here, longest(request, stage));
}

}  // namespace kel::http::simulation
