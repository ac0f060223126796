// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineDeadlines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "kel-http/curl/RequestImpl.h"

namespace kel::http {
namespace {

using std::chrono::milliseconds;

// In libcurl's words, so that it does not matter to anybody which of the two was first.
void describe(const Engine::ActiveTask& task, milliseconds elapsed) {
    curl_off_t received = 0;
    curl_easy_getinfo(task.easy, CURLINFO_SIZE_DOWNLOAD_T, &received);
    std::array<char, CURL_ERROR_SIZE>& text = stateOf(*task.request).errorBuffer;
    const auto end =
        fmt::format_to_n(text.data(), text.size() - 1,
                         "Operation timed out after {} milliseconds with {} bytes received", elapsed.count(), received)
            .out;
    *end = '\0';
}

}  // namespace

EngineDeadlines::EngineDeadlines(EngineTransfers& of_transfers, EngineCompletion& of_completion)
    : transfers(of_transfers), completion(of_completion) {}

EngineDeadlines::Clock::time_point EngineDeadlines::deadline(Clock::time_point start, milliseconds timeout) {
    const auto farthest = std::chrono::duration_cast<milliseconds>(Clock::time_point::max() - start);
    return timeout < farthest ? start + timeout : Clock::time_point::max();
}

void EngineDeadlines::begin(Engine::ActiveTask& task) {
    const milliseconds timeout = task.request->config.timeout;
    if (timeout <= milliseconds(0)) return;
    task.deadline = deadline(Clock::now(), timeout);
    earliest = std::min(earliest, task.deadline);
}

tl::optional<EngineDeadlines::Clock::time_point> EngineDeadlines::next() {
    if (transfers.empty()) earliest = Clock::time_point::max();
    if (earliest == Clock::time_point::max()) return tl::nullopt;
    return earliest;
}

void EngineDeadlines::endOverdue() {
    if (earliest == Clock::time_point::max()) return;
    const Clock::time_point now = Clock::now();
    if (now < earliest) return;
    while (const TaskPtr task = findOverdue(now)) {
        const milliseconds timeout = task->request->config.timeout;
        describe(*task, timeout + std::chrono::duration_cast<milliseconds>(now - task->deadline));
        completion.completeTask(task->easy, CURLE_OPERATION_TIMEDOUT);
    }
}

// On the way past all others the earliest deadline of those that stay is found.
TaskPtr EngineDeadlines::findOverdue(Clock::time_point now) {
    TaskPtr overdue;
    earliest = Clock::time_point::max();
    transfers.forEach([&](const TaskPtr& task) {
        if (task->deadline <= now) overdue = task;
        earliest = std::min(earliest, task->deadline);
        return !overdue;
    });
    return overdue;
}

}  // namespace kel::http
