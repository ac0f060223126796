// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Script.h"
#include "world/Counters.h"
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
    // Of a download, whose file has gone to `body`.
    std::string digest;
    // Microseconds that the library itself has taken it for; less than 0: it does not tell.
    std::int64_t timing = -1;
};

// One run of a request of the caller's own.
struct SeenRun {
    std::int64_t finals = 0;
    bool cancelled = false;
    bool orphaned = false;
};

// One call of a progress callback.
struct SeenProgress {
    std::int64_t total = 0;
    std::int64_t received = 0;
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
    // The most bytes that it told of.
    std::int64_t mostProgress = 0;
    // There was no engine, or it was destroyed meanwhile.
    bool orphaned = false;
    // Cancelled only because the world has to come to an end.
    bool givenUp = false;
    // Of a caller's own; the outcomes are those of the first one.
    std::vector<SeenRun> runs;
    // Its files have been changed; what that has left in the one that it goes on with, if it is there still.
    bool isChanged = false;
    bool isRemoved = false;
    std::string changed;
    std::vector<SeenProgress> reports;
};

// What a server was asked.
struct Arrival {
    Time at{0};
    std::int64_t host = 0;
    std::int64_t request = 0;
    std::int64_t exchange = 0;
    std::string method;
    bool bodyIsRight = true;
    // Request line and headers.
    std::string head;
    std::int64_t bodySize = 0;
    // Counted for all servers together.
    std::int64_t connection = 0;
    // Whose tunnel it came through; 0: straight.
    std::int64_t proxy = 0;
};

// What a proxy was asked, and what it said.
struct ProxyAsk {
    Time at{0};
    std::int64_t proxy = 0;
    std::string target;  // the request's first line
    std::int64_t status = 0;
    bool withCredentials = false;
};

// A connection to a proxy, whatever becomes of it.
struct ProxyLink {
    Time at{0};
    std::int64_t proxy = 0;
    // Arrivals before it.
    std::size_t arrivals = 0;
};

// A request, or a part of one, that came to a connection on which nothing is answered any more.
struct Unheard {
    Time at{0};
    std::int64_t host = 0;
    std::int64_t connection = 0;  // -1: not known
    // Arrivals before it.
    std::size_t arrivals = 0;
};

// What a caller did.
struct SeenDeed {
    Time at{0};
    Deed deed = Deed::cancel;
    std::int64_t request = 0;
    // The request was under way, and something waited for the executor.
    bool isRunning = false;
    bool isQueued = false;
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
    // What is there at the end, by name: random parts of names are left out.
    std::map<std::string, std::string> contents;
    // Tasks that the engine was given for its thread, and those that it ran.
    std::int64_t tasksQueued = 0;
    std::int64_t tasksRun = 0;
    // When there was no engine any more; Never: there was one until the end.
    Time engineEnd = Never;
    // What somebody met that may never be.
    std::vector<std::string> violations;
    std::vector<ProxyAsk> proxyAsks;
    // Those that came to their end, and those among them by which an earlier session went on.
    std::int64_t tlsHandshakes = 0;
    std::int64_t tlsResumed = 0;
    Time begin{0};
    // What is heard when all troubles are over.
    SeenRequest last;
    std::vector<Unheard> unheard;
    std::vector<SeenDeed> deeds;
    Counters counters;
    // Left behind as well: of memory, in blocks and bytes, and of the process's descriptors.
    std::int64_t blocks = 0;
    std::int64_t descriptors = 0;
    std::vector<ProxyLink> proxyLinks;
    // Clients and requests that are still there though everybody has let go of them and the engine has nothing to do, and
    // files that are still open then.
    std::vector<std::string> survivors;
};

}  // namespace kel::http::simulation
