// SPDX-License-Identifier: MIT
#include <cstdio>
#include <future>

#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/thread_executor.h"

int main(int, char** argv) {
    std::promise<std::string> answer;
    ko::thread_executor executor("example");  // outlives the engine, which posts to it
    kel::http::Engine engine([](const std::function<void()>& completion) { completion(); });
    const auto client = kel::http::createClient(executor, *logging::getLogger("example", 0));
    kel::http::RequestConfig request;
    request.url = argv[1];
    request.timeout = std::chrono::seconds(10);
    const auto on_response = [&](auto, const kel::http::ResponseData& response) { answer.set_value(response.body); };
    const auto on_error = [&](auto, const kel::http::ErrorData& error) { answer.set_value("none: " + error.message); };
    executor.post([&] { client->start_request(request, {}, on_response, on_error); }, 0);
    std::puts(answer.get_future().get().c_str());
}
