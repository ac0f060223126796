// SPDX-License-Identifier: MIT

// What bench/run measures:
//
//   kel-http-bench library|floor N CONCURRENCY URL   N GET requests, so many at a time
//   kel-http-bench hold library|floor FIRST ALL URL  FIRST requests, ALL of them after a line on standard input; after each
//                                                    line it tells the bytes it has allocated by then; at the end of the
//                                                    input the process goes, answered or not

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "Load.h"
#include "Loop.h"
#include "ko/thread_executor.h"

namespace kel::http::bench {
namespace {

using Arguments = std::vector<std::string>;

std::unique_ptr<Loop> makeLoop(const std::string& kind, ko::executor& executor, Recipient& recipient) {
    if (kind == "library") return makeLibraryLoop(executor, recipient);
    if (kind == "floor") return makeFloorLoop(executor, recipient);
    return nullptr;
}

void start(ko::executor& executor, Load& load, Loop& loop, int count) {
    executor.post([&load, &loop, count] { load.start(loop, count); }, 0);
}

// Neither loop may go before the executor: its last task is still in use there.
bool send(const Arguments& arguments) {
    Load load(std::stoi(arguments[1]), arguments[3]);
    std::unique_ptr<Loop> loop;
    ko::thread_executor executor("BenchExecutor");
    loop = makeLoop(arguments[0], executor, load);
    if (!loop) return false;
    start(executor, load, *loop, std::stoi(arguments[2]));
    load.await();
    return true;
}

void tellAllocatedBytes() {
    const auto memory = mallinfo2();
    std::printf("%zu\n", memory.uordblks + memory.hblkhd);
    std::fflush(stdout);
}

bool hold(const Arguments& arguments) {
    const int first = std::stoi(arguments[2]);
    const int all = std::stoi(arguments[3]);
    Load load(all, arguments[4]);
    std::unique_ptr<Loop> loop;
    ko::thread_executor executor("BenchExecutor");
    loop = makeLoop(arguments[1], executor, load);
    if (!loop) return false;
    start(executor, load, *loop, first);
    std::string line;
    if (std::getline(std::cin, line)) {
        tellAllocatedBytes();
        start(executor, load, *loop, all - first);
    }
    if (std::getline(std::cin, line)) tellAllocatedBytes();
    // The requests that are held can not end, so nothing is taken down.
    std::_Exit(0);
}

int run(const Arguments& arguments) {
    if (arguments.size() == 4 && send(arguments)) return 0;
    if (arguments.size() == 5 && arguments[0] == "hold" && hold(arguments)) return 0;
    std::fputs(
        "usage: kel-http-bench library|floor N CONCURRENCY URL\n"
        "       kel-http-bench hold library|floor FIRST ALL URL\n",
        stderr);
    return 2;
}

}  // namespace
}  // namespace kel::http::bench

int main(int count, char** words) {
    return kel::http::bench::run({words + 1, words + count});
}
