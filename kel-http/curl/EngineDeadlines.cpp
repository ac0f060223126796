// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineDeadlines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <new>
#include <string>

#include "kel-http/curl/RequestImpl.h"

namespace kel::http {
namespace {

using std::chrono::milliseconds;

curl_off_t figureOf(const Engine::ActiveTask& task, CURLINFO info) {
    curl_off_t figure = 0;
    curl_easy_getinfo(task.easy, info, &figure);
    return figure;
}

// In libcurl's words, which may be first. It tells the look-up of a name from the rest of connecting.
std::string describe(const Engine::ActiveTask& task, milliseconds elapsed) {
    const curl_off_t received = figureOf(task, CURLINFO_SIZE_DOWNLOAD_T);
    const curl_off_t announced = figureOf(task, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    if (figureOf(task, CURLINFO_PRETRANSFER_TIME_T) == 0) {
        return fmt::format("Connection timed out after {} milliseconds", elapsed.count());
    }
    if (announced < 0) {
        return fmt::format("Operation timed out after {} milliseconds with {} bytes received", elapsed.count(),
                           received);
    }
    return fmt::format("Operation timed out after {} milliseconds with {} out of {} bytes received", elapsed.count(),
                       received, announced);
}

// Without memory the text is the plain one of libcurl's code.
void tell(const Engine::ActiveTask& task, milliseconds elapsed) {
    std::array<char, CURL_ERROR_SIZE>& buffer = stateOf(*task.request).errorBuffer;
    buffer.front() = '\0';
    try {
        buffer[describe(task, elapsed).copy(buffer.data(), buffer.size() - 1)] = '\0';
    } catch (const std::bad_alloc&) {
        return;
    }
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
    task.start = Clock::now();
    task.deadline = deadline(task.start, timeout);
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
        tell(*task, std::chrono::duration_cast<milliseconds>(now - task->start));
        EngineTransfers::dropHeld(task->easy);
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
