// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "torture/Life.h"
#include "torture/Place.h"

namespace kel::http::torture {

// All that one run left behind.
struct Trail {
    Transcript transcript;
    std::vector<std::string> requests;
    std::vector<std::string> proxy_requests;
    std::size_t connections = 0;
    Files files;
    std::vector<std::string> descriptors;  // those that were not there before
    int input_bytes = 0;                   // that nobody has read from standard input
};

// What is wrong with a run, compared with one in which nothing failed.
std::vector<std::string> judge(const Scenario& scenario, const Trail& reference, const Trail& trail);

}  // namespace kel::http::torture
