// SPDX-License-Identifier: MIT
#include "TextReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <map>

#include "common/Phases.h"

namespace kel::http::tool {
namespace {

constexpr std::int64_t bar_width = 40;

std::string bar(const Phase& phase, std::int64_t total) {
    const auto column = [total](std::int64_t time) {
        return static_cast<std::size_t>(total == 0 ? 0 : time * bar_width / total);
    };
    const std::size_t begin = column(phase.begin.count());
    std::size_t end = column((phase.begin + phase.duration).count());
    // However short, what happened is seen.
    if (phase.duration.count() > 0) end = std::max(end, begin + 1);
    return std::string(begin, ' ') + std::string(end - begin, '#');
}

}  // namespace

std::string head_of(const ResponseData& response) {
    std::string text = fmt::format("HTTP {}\n", response.status);
    for (const auto& [name, value] :
         std::map<std::string, std::string>(response.headers.begin(), response.headers.end()))
        text += fmt::format("{}: {}\n", name, value);
    return text + "\n";
}

std::string timing_bars(const TimingData& timing) {
    std::string text;
    for (const Phase& phase : phases_of(timing)) {
        text += fmt::format("{:<8}{:>10.2f} ms  |{:<{}}|\n", phase.name, milliseconds_of(phase.duration),
                            bar(phase, timing.total), bar_width);
    }
    text += fmt::format("{:<8}{:>10.2f} ms", "total", milliseconds_of(std::chrono::microseconds(timing.total)));
    if (timing.redirect > 0) {
        text += fmt::format("  (redirects: {:.2f} ms)", milliseconds_of(std::chrono::microseconds(timing.redirect)));
    }
    return text + "\n";
}

}  // namespace kel::http::tool
