// SPDX-License-Identifier: MIT
#include "kel-http/curl/IdleConnections.h"

#include <algorithm>

namespace kel::http {
namespace {

constexpr long kept_idle = 16;
constexpr std::chrono::seconds period(1);

}  // namespace

IdleConnections::IdleConnections(CURLM* of_multi, Clock of_transfers)
    : multi(of_multi), clock(of_transfers), begin(clock()) {}

void IdleConnections::attach() {
    ++attached;
    follow();
}

void IdleConnections::detach() {
    --attached;
    follow();
}

long IdleConnections::limit() const {
    return std::max(peak, lastPeak) + kept_idle;
}

// Unchecked: with another limit connections are made more often, or kept longer, and everything goes on.
void IdleConnections::follow() {
    const long before = limit();
    const auto now = clock();
    const auto age = now - begin;
    if (age >= period) {
        lastPeak = age < 2 * period ? peak : attached;
        peak = attached;
        begin = now;
    }
    peak = std::max(peak, attached);
    if (limit() != before) curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, limit());
}

}  // namespace kel::http
