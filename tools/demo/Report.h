// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Scenario.h"
#include "Session.h"

namespace kel::http::demo {

// The table of the demonstration, line by line, and what it all came to.
class Report {
 public:
    static std::string heading();

    // The row of a scenario. Of several requests the slowest one's times are shown, and the sum of their bytes.
    std::string row(const Scenario& scenario, const std::vector<Result>& results);

    // "214 requests: 212 responses, 1 errors, 1 cancelled", and how many were not as expected.
    std::string summary() const;

    // Every outcome was the expected one.
    bool as_expected() const { return unexpected_ == 0; }

 private:
    std::size_t requests_ = 0;
    std::size_t responses_ = 0;
    std::size_t errors_ = 0;
    std::size_t cancelled_ = 0;
    std::size_t unexpected_ = 0;
};

}  // namespace kel::http::demo
