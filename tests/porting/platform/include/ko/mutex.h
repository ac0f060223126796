// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>

#include "ko/thread_annotations.h"

namespace ko {

class mutex : public std::mutex {
 public:
    explicit mutex(const char* /*name*/) {}
};

class lock_guard {
 public:
    explicit lock_guard(ko::mutex& mutex) : guard_(mutex) {}

 private:
    const std::lock_guard<std::mutex> guard_;
};

}  // namespace ko
