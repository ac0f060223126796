// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kel::http::soak {

// What this process has of the machine.
struct Usage {
    double resident_bytes = 0;
    std::size_t descriptors = 0;
};

Usage presentUsage();

// Tells growth without end from what a process takes until it is warm.
class Growth {
 public:
    // Taken where all is quiet, at intervals of about the same length.
    void add(const Usage& usage) { samples_.push_back(usage); }

    // What has grown, or empty. The first third is warming up; compared are the most of the second third and the least
    // of the last one, which lies higher only where the whole does.
    std::string verdict(bool memory_counts) const;

 private:
    std::vector<Usage> samples_;
};

}  // namespace kel::http::soak
