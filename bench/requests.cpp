// SPDX-License-Identifier: MIT

// What bench/run measures of requests:
//
//   kel-http-bench library|floor [CA_FILE]
//
// It makes the loop, and does what the lines of its standard input say, one after the other:
//
//   warm N CONCURRENCY URL   N GET requests, so many at a time
//   get N CONCURRENCY URL    the same, and tells what they have taken (Meter)
//   hold N URL               starts N requests that nobody answers
//   restart N                N times another loop, from nothing to nothing, and tells what they have taken
//   memory                   tells the bytes that are allocated
//
// At the end of the input the process goes, answered or not.

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Load.h"
#include "Loop.h"
#include "Meter.h"
#include "ko/thread_executor.h"

namespace kel::http::bench {
namespace {

struct Kind {
    std::string name;
    std::string ca_file;  // empty: the platform's
};

std::unique_ptr<Loop> makeLoop(const Kind& kind, ko::executor& executor, Recipient& recipient) {
    return kind.name == "floor" ? makeFloorLoop(executor, recipient, kind.ca_file)
                                : makeLibraryLoop(executor, recipient, kind.ca_file);
}

// A loop may not go before the executor: its last task is still in use there.
struct Session {
    explicit Session(const Kind& kind) {
        loop = makeLoop(kind, executor, load);
        load.setLoop(*loop);
    }

    Load load;
    std::unique_ptr<Loop> loop;
    ko::thread_executor executor{"BenchExecutor"};
};

void tell(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

std::string allocatedBytes() {
    const auto memory = mallinfo2();
    return std::to_string(memory.uordblks + memory.hblkhd);
}

// There may be one engine at a time.
std::string restart(const Kind& kind, std::unique_ptr<Session>& session, int count) {
    session.reset();
    const Meter meter;
    for (; count > 0; --count) Session another(kind);
    std::string figures = meter.stop();
    session = std::make_unique<Session>(kind);
    return figures;
}

std::string get(Session& session, int total, int concurrency, const std::string& url) {
    const Meter meter;
    session.load.run(session.executor, total, concurrency, url);
    return meter.stop();
}

bool obey(const Kind& kind, std::unique_ptr<Session>& session, const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string url;
    int count = 0;
    int concurrency = 0;
    words >> verb;
    if (verb == "warm" && words >> count >> concurrency >> url) {
        session->load.run(session->executor, count, concurrency, url);
    } else if (verb == "get" && words >> count >> concurrency >> url) {
        tell(get(*session, count, concurrency, url));
    } else if (verb == "hold" && words >> count >> url) {
        session->load.hold(session->executor, count, url);
    } else if (verb == "restart" && words >> count) {
        tell(restart(kind, session, count));
    } else if (verb == "memory") {
        tell(allocatedBytes());
    } else {
        return false;
    }
    return true;
}

int run(const Kind& kind) {
    auto session = std::make_unique<Session>(kind);
    for (std::string line; std::getline(std::cin, line);) {
        if (!obey(kind, session, line)) {
            std::fprintf(stderr, "kel-http-bench: not understood: %s\n", line.c_str());
            std::_Exit(2);
        }
    }
    // The requests that are held can not end, so nothing is taken down.
    std::_Exit(0);
}

}  // namespace
}  // namespace kel::http::bench

int main(int count, char** words) {
    const std::vector<std::string> arguments(words + 1, words + count);
    const bool named = !arguments.empty() && (arguments[0] == "library" || arguments[0] == "floor");
    if (!named || arguments.size() > 2) {
        std::fputs("usage: kel-http-bench library|floor [CA_FILE]\n", stderr);
        return 2;
    }
    return kel::http::bench::run({arguments[0], arguments.size() > 1 ? arguments[1] : ""});
}
