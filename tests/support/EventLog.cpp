// SPDX-License-Identifier: MIT
#include "EventLog.h"

#include <algorithm>
#include <utility>

#include "Deadline.h"

namespace kel::http::test {

void EventLog::add(std::string event) {
    const std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(std::move(event));
    // Under the lock: whoever waits may destroy this log as soon as it has seen the event.
    changed_.notify_all();
}

void EventLog::await(const std::string& event, std::size_t times) const {
    awaitThat('"' + event + '"', [&] { return countLocked(event) >= times; });
}

void EventLog::awaitCount(std::size_t count) const {
    awaitThat(std::to_string(count) + " events", [&] { return events_.size() >= count; });
}

std::vector<std::string> EventLog::events() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

std::size_t EventLog::count() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return events_.size();
}

std::size_t EventLog::count(const std::string& event) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return countLocked(event);
}

void EventLog::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
}

template <typename Predicate>
void EventLog::awaitThat(const std::string& awaited, Predicate happened) const {
    std::unique_lock<std::mutex> lock(mutex_);
    if (changed_.wait_for(lock, Deadline, happened)) return;
    std::string text = awaited + "; so far:";
    for (const std::string& event : events_) text += " \"" + event + '"';
    throw DeadlineMissed(text);
}

std::size_t EventLog::countLocked(const std::string& event) const {
    return static_cast<std::size_t>(std::count(events_.begin(), events_.end(), event));
}

}  // namespace kel::http::test
