// SPDX-License-Identifier: MIT
// Fetches one page from a server of its own, through hooks of its own. Exits with 0 when both have worked.
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>

#include "OneReplyServer.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/curl/Hooks.h"
#include "kel-http/protocol.h"
#include "ko/thread_executor.h"

namespace {

int hooks_called = 0;  // by the engine's thread, which has ended when it is read

constexpr const char* expected_body = "served";

}  // namespace

// These take the place of the library's.
void engine_request_added() {
    ++hooks_called;
}

CURLMcode engine_curl_multi_add_handle(void* multi, void* easy) {
    ++hooks_called;
    return curl_multi_add_handle(multi, easy);
}

CURLMcode engine_curl_multi_perform(void* multi, int* running) {
    static const int first_call = ++hooks_called;
    static_cast<void>(first_call);
    return curl_multi_perform(multi, running);
}

namespace {

// The page's body, or what went wrong instead.
std::string fetch(const std::string& url) {
    std::promise<std::string> outcome;
    ko::thread_executor executor("consumer");
    kel::http::Engine engine([](const std::function<void()>& closure) { closure(); });
    const auto client = kel::http::createClient(executor, *logging::getLogger("consumer", 0));

    kel::http::RequestConfig request;
    request.url = url;
    const auto on_response = [&](kel::http::Client::RequestId, const kel::http::ResponseData& response) {
        const bool is_ok = kel::http::protocol::ok_status(static_cast<unsigned int>(response.status));
        outcome.set_value(is_ok ? response.body : "status " + std::to_string(response.status));
    };
    const auto on_error = [&](kel::http::Client::RequestId, const kel::http::ErrorData& error) {
        outcome.set_value(error.message);
    };
    executor.post([&] { client->start_request(request, {}, on_response, on_error); }, 0);
    return outcome.get_future().get();
}

}  // namespace

int main() {
    // A proxy of the machine's can not reach this server.
    for (const char* const variable : {"http_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(variable);
    const OneReplyServer server(expected_body);
    const std::string body = fetch(server.url());
    std::printf("body: %s\nhooks called: %d\n", body.c_str(), hooks_called);
    return body == expected_body && hooks_called == 3 ? EXIT_SUCCESS : EXIT_FAILURE;
}
