// SPDX-License-Identifier: MIT

// What tools/footprint measures of connections that are kept:
//
//   kel-http-bench-connections COUNT URL [CA_FILE OWN_CERT OWN_PKEY]   COUNT GET requests at once, which the server
//                                                                      answers when all have come; prints the bytes
//                                                                      allocated when all connections are idle

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <vector>

#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/thread_executor.h"

namespace kel::http::bench {
namespace {

using Arguments = std::vector<std::string>;

// Anything but a complete 200 ends the process: its cost is not the one to be measured.
[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "kel-http-bench-connections: %s\n", what.c_str());
    std::abort();
}

RequestConfig configOf(const Arguments& arguments) {
    RequestConfig config;
    config.url = arguments[1];
    if (arguments.size() > 2) {
        config.ca_file = arguments[2];
        config.own_cert = arguments[3];
        config.own_pkey = arguments[4];
    }
    return config;
}

void connect(const Arguments& arguments) {
    const int count = std::stoi(arguments[0]);
    const RequestConfig config = configOf(arguments);
    int answered = 0;
    std::promise<void> all;
    ko::thread_executor executor("BenchExecutor");
    Engine engine([](const std::function<void()>& completion) { completion(); });
    const auto client = createClient(executor, *logging::getLogger("bench", 0));
    const auto on_response = [&](Client::RequestId, const ResponseData& data) {
        if (data.status != 200) fail("not 200");
        if (++answered == count) all.set_value();
    };
    const auto on_error = [](Client::RequestId, const ErrorData& data) { fail(data.message); };
    const auto start = [&] {
        for (int i = 0; i < count; ++i) client->start_request(config, {}, on_response, on_error);
    };
    executor.post(start, 0);
    all.get_future().wait();
    engine.settle();
    const auto memory = mallinfo2();
    std::printf("%zu\n", memory.uordblks + memory.hblkhd);
}

}  // namespace
}  // namespace kel::http::bench

int main(int count, char** words) {
    const kel::http::bench::Arguments arguments(words + 1, words + count);
    if (arguments.size() != 2 && arguments.size() != 5) {
        std::fputs("usage: kel-http-bench-connections COUNT URL [CA_FILE OWN_CERT OWN_PKEY]\n", stderr);
        return 2;
    }
    kel::http::bench::connect(arguments);
    return 0;
}
