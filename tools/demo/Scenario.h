// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "DemoFolder.h"
#include "OriginServer.h"
#include "kel-http/RequestConfig.h"
#include "kel-http/ResponseData.h"

namespace kel::http::demo {

// One row of the demonstration.
struct Scenario {
    std::string title;
    std::string path;
    RequestConfig request;
    std::size_t times = 1;  // sent all at once
    bool cancel_when_stalled = false;
    std::string expected_outcome = "200";
    std::size_t sent_bytes = 0;  // body bytes of one request
    // What is wrong with a response; empty: nothing.
    std::function<std::string(const ResponseData&)> complaint = [](const ResponseData&) { return std::string(); };
};

// All rows, in order.
std::vector<Scenario> all_scenarios(const OriginServer& server, DemoFolder& folder);

}  // namespace kel::http::demo
