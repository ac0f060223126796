// SPDX-License-Identifier: MIT
// Fetches one URL in a program that has no event loop: results come on a thread of the library's executor.
#include <cstdio>
#include <future>

#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/thread_executor.h"

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: %s URL\n", argv[0]), 1;

    std::promise<int> exit_code;              // outlives the thread that sets it
    ko::thread_executor executor("example");  // outlives the engine, which posts to it
    kel::http::Engine engine([](const std::function<void()>& closure) { closure(); });
    const auto client = kel::http::createClient(executor, *logging::getLogger("example", 0));

    const auto on_response = [&](kel::http::Client::RequestId, const kel::http::ResponseData& response) {
        std::printf("status %d, %zu bytes\n", response.status, response.body.size());
        exit_code.set_value(0);
    };
    const auto on_error = [&](kel::http::Client::RequestId, const kel::http::ErrorData& error) {
        std::fprintf(stderr, "no answer: %s\n", error.message.c_str());
        exit_code.set_value(1);
    };
    kel::http::RequestConfig request;
    request.url = argv[1];
    // A client is called on its executor's thread only.
    executor.post([&] { client->start_request(request, {}, on_response, on_error); }, 0);
    return exit_code.get_future().get();
}
