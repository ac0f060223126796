// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "world/Time.h"

namespace kel::http::simulation {

// What a caller was told at the end of a request.
struct SeenOutcome {
    Time at{0};
    bool isError = false;
    // Of a response.
    int status = 0;
    std::string body;
    std::map<std::string, std::string> headers;  // names in lower case
    // Of an error, as ClientFailure has it.
    int failure = 0;
    std::string message;
};

struct SeenRequest {
    bool started = false;
    Time startedAt{0};
    bool cancelled = false;
    Time cancelledAt{0};
    std::vector<SeenOutcome> outcomes;
    // Calls of the progress callback, and those behind the outcome or a cancellation.
    std::int64_t progress = 0;
    std::int64_t lateProgress = 0;
};

// What a server was asked.
struct Arrival {
    Time at{0};
    std::int64_t host = 0;
    std::int64_t request = 0;
    std::int64_t exchange = 0;
    std::string method;
    bool bodyIsRight = true;
};

// What a proxy was asked, and what it said.
struct ProxyAsk {
    Time at{0};
    std::int64_t proxy = 0;
    std::string target;  // the request's first line
    std::int64_t status = 0;
    bool withCredentials = false;
};

// What can be seen of a world from outside of the library.
struct Observation {
    std::map<std::int64_t, SeenRequest> requests;
    std::vector<Arrival> arrivals;
    // The world did not come to its end.
    bool isStuck = false;
    // Left behind.
    std::size_t sockets = 0;
    std::int64_t bytes = 0;
    std::vector<std::string> files;
    // The whole run as a number.
    std::uint64_t hash = 0;
    std::uint64_t events = 0;
    Time end{0};
    std::vector<ProxyAsk> proxyAsks;
    // Those that came to their end, and those among them by which an earlier session went on.
    std::int64_t tlsHandshakes = 0;
    std::int64_t tlsResumed = 0;
};

}  // namespace kel::http::simulation
