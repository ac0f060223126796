// SPDX-License-Identifier: MIT
#include "runs/Progress.h"

#include <unistd.h>

#include <cstdio>

namespace kel::http::simulation {
namespace {

std::string textOf(Time time) {
    const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(time).count();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    if (minutes == 0) return std::to_string(seconds) + " s";
    if (minutes < 60) return std::to_string(minutes) + " min";
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

}  // namespace

std::string summaryOf(const Tally& tally) {
    return std::to_string(tally.seeds) + " seeds, " + std::to_string(tally.requests) + " requests, " +
           textOf(tally.time) + " of virtual time, " + std::to_string(tally.states.size()) + " states";
}

Progress::Progress() : in_place_(isatty(STDERR_FILENO) != 0) {}

void Progress::tell(const Tally& tally) {
    const auto often = std::chrono::milliseconds(in_place_ ? 500 : 10000);
    if (Clock::now() - told_ < often) return;
    told_ = Clock::now();
    const std::string text = summaryOf(tally) + ", " + std::to_string(tally.findings.size()) + " findings";
    std::fprintf(stderr, in_place_ ? "\r%s\033[K" : "%s\n", text.c_str());
}

void Progress::clear() const {
    if (in_place_) std::fputs("\r\033[K", stderr);
}

}  // namespace kel::http::simulation
