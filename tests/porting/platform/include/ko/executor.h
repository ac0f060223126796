// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace ko {

class executor {
 public:
    virtual ~executor() = default;
    virtual void post(std::function<void()> task, int tag) = 0;
};

}  // namespace ko
