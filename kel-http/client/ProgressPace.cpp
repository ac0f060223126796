// SPDX-License-Identifier: MIT
#include "kel-http/client/ProgressPace.h"

namespace kel::http {
namespace {

constexpr std::chrono::seconds interval(1);

}  // namespace

ProgressPace::Report ProgressPace::timed(bool complete, std::uint32_t received) {
    const auto now = clock();
    if (!complete && now - last_time < interval) return Report::none;
    last_time = now;
    last_received = received;
    return complete ? Report::completion : Report::periodic;
}

}  // namespace kel::http
