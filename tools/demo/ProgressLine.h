// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "common/ProgressBar.h"

namespace kel::http::demo {

// How far a download has come, on standard output: a bar that is drawn anew in its place on a terminal, otherwise a line
// for each report.
class ProgressLine {
 public:
    explicit ProgressLine(const std::string& name) : bar_(name) {}
    // Leaves the bar as it is and goes to the next line.
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(std::uint64_t received, std::uint64_t total);

 private:
    tool::ProgressBar bar_;
    std::uint64_t shown_ = 0;
};

}  // namespace kel::http::demo
