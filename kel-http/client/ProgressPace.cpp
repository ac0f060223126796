// SPDX-License-Identifier: MIT
#include "kel-http/client/ProgressPace.h"

namespace kel::http {
namespace {

constexpr std::chrono::seconds interval(1);

}  // namespace

ProgressPace::Report ProgressPace::next(std::uint32_t total, std::uint32_t received) {
    const bool complete = received == total && total != 0;
    // libcurl calls very often, so the clock is read only when there is something to tell.
    if (!complete && received == last_received) return Report::none;
    const auto now = clock();
    if (!complete && now - last_time < interval) return Report::none;
    last_time = now;
    last_received = received;
    return complete ? Report::completion : Report::periodic;
}

}  // namespace kel::http
