// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

class Executor {
 public:
    virtual ~Executor() = default;
    virtual void post(std::function<void()> task, int reserved, const std::string& name) = 0;
};
