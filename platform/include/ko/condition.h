// SPDX-License-Identifier: MIT
#ifndef KO_CONDITION_H
#define KO_CONDITION_H

#include <condition_variable>
#include <mutex>

#include "ko/mutex.h"

namespace ko {

// A condition variable for a ko::mutex.
class condition {
 public:
    // Releases `mutex`, sleeps and takes it again. May return without a notify_one(): test the state in a loop.
    void wait(ko::mutex& mutex) KO_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        condition_.wait(lock);
        lock.release();
    }

    // Any thread.
    void notify_one() noexcept { condition_.notify_one(); }

 private:
    std::condition_variable condition_;
};

}  // namespace ko

#endif  // KO_CONDITION_H
