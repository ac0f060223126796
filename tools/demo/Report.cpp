// SPDX-License-Identifier: MIT
#include "Report.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "common/Phases.h"

namespace kel::http::demo {
namespace {

constexpr const char* row_format = "{:<7} {:<12} {:<21} {:<10} {:>8} {:>8} {:>8} {:>8} {:>9} {:>9}  {}\n";

std::string milliseconds(std::chrono::microseconds time) {
    return fmt::format("{:.2f}", tool::milliseconds_of(time));
}

struct Times {
    std::string connect;
    std::string wait;
    std::string receive;
    std::string total;
};

Times times_of(const Result& result) {
    if (!result.timing) return {"-", "-", "-", milliseconds(result.elapsed)};
    const tool::Phases phases = tool::phases_of(*result.timing);
    // Sending is part of the wait: a body goes out while the answer is awaited.
    return {milliseconds(phases[0].duration + phases[1].duration + phases[2].duration),
            milliseconds(phases[3].duration + phases[4].duration), milliseconds(phases[5].duration),
            milliseconds(std::chrono::microseconds(result.timing->total))};
}

const Result& slowest(const std::vector<Result>& results) {
    return *std::max_element(results.begin(), results.end(),
                             [](const Result& left, const Result& right) { return left.elapsed < right.elapsed; });
}

std::string outcome_of(const std::vector<Result>& results) {
    const bool all_same = std::all_of(results.begin(), results.end(), [&results](const Result& result) {
        return result.outcome == results.front().outcome;
    });
    return all_same ? results.front().outcome : "different";
}

std::size_t unexpected_in(const std::vector<Result>& results) {
    return static_cast<std::size_t>(
        std::count_if(results.begin(), results.end(), [](const Result& result) { return !result.complaint.empty(); }));
}

std::string verdict(const std::vector<Result>& results) {
    for (const Result& result : results) {
        if (!result.complaint.empty()) return "WRONG: " + result.complaint;
    }
    return "ok";
}

std::size_t count(const std::vector<Result>& results, Result::Kind kind) {
    return static_cast<std::size_t>(
        std::count_if(results.begin(), results.end(), [kind](const Result& result) { return result.kind == kind; }));
}

std::string counted(std::size_t number, const char* noun) {
    return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

}  // namespace

std::string Report::heading() {
    const std::string names = fmt::format(row_format, "method", "path", "what", "outcome", "connect", "wait", "receive",
                                          "total", "sent", "received", "check");
    const std::string units = fmt::format(row_format, "", "", "", "", "ms", "ms", "ms", "ms", "bytes", "bytes", "");
    return names + units;
}

std::string Report::row(const Scenario& scenario, const std::vector<Result>& results) {
    requests_ += results.size();
    responses_ += count(results, Result::Kind::Response);
    errors_ += count(results, Result::Kind::Error);
    cancelled_ += count(results, Result::Kind::Cancelled);
    unexpected_ += unexpected_in(results);
    const Times times = times_of(slowest(results));
    const std::size_t received =
        std::accumulate(results.begin(), results.end(), std::size_t{0},
                        [](std::size_t sum, const Result& result) { return sum + result.received_bytes; });
    return fmt::format(row_format, name_of(scenario.request.method), scenario.path, scenario.title, outcome_of(results),
                       times.connect, times.wait, times.receive, times.total, scenario.sent_bytes * results.size(),
                       received, verdict(results));
}

std::string Report::summary() const {
    const std::string counts = fmt::format("{}: {}, {}, {} cancelled", counted(requests_, "request"),
                                           counted(responses_, "response"), counted(errors_, "error"), cancelled_);
    if (as_expected()) return counts + "\n";
    return fmt::format("{}\n{} not as expected\n", counts, unexpected_);
}

}  // namespace kel::http::demo
