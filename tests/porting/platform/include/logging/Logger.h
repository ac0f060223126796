// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace logging {

// This system keeps no log.
class Logger {
 public:
    int verbosity() const { return 0; }
    void write(int /*level*/, std::string_view /*text*/) {}
};

Logger* getLogger(const char* name, int group);

}  // namespace logging
