// SPDX-License-Identifier: MIT
#ifndef TESTS_PLATFORM_WAITING_H
#define TESTS_PLATFORM_WAITING_H

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

constexpr std::chrono::seconds deadline{30};

// Something that happens once, on any thread.
class Event {
 public:
    void set() {
        const std::lock_guard<std::mutex> lock(mutex_);
        happened_ = true;
        changed_.notify_all();
    }

    // False when the deadline passed first.
    [[nodiscard]] bool await() {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, deadline, [this] { return happened_; });
    }

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool happened_ = false;
};

inline bool readable_within(int descriptor, std::chrono::milliseconds time) {
    pollfd entry{descriptor, POLLIN, 0};
    return poll(&entry, 1, static_cast<int>(time.count())) == 1 && (entry.revents & POLLIN) != 0;
}

inline bool becomes_readable(int descriptor) {
    return readable_within(descriptor, deadline);
}

inline bool is_readable(int descriptor) {
    return readable_within(descriptor, std::chrono::milliseconds(0));
}

#endif  // TESTS_PLATFORM_WAITING_H
