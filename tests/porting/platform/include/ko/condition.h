// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>

#include "ko/mutex.h"

namespace ko {

class condition {
 public:
    void wait(mutex& mutex) { condition_.wait(mutex); }
    void notify_one() { condition_.notify_one(); }

 private:
    std::condition_variable_any condition_;
};

}  // namespace ko
