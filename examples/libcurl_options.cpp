// SPDX-License-Identifier: MIT
// Fetches some URLs at once, with options of libcurl's that the library has no field for: transfers that stand still end,
// bodies may come compressed, a POST that is not redirected is never sent again by libcurl, and there are no more than two connections in all.
#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>
#include <utility>

#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/curl/Hooks.h"
#include "ko/thread_executor.h"

// Takes the place of the library's own. A transfer that finds no connection waits for one; its time-out runs meanwhile.
CURLMcode engine_curl_multi_add_handle(void* multi, void* easy) {
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, 2L);
    return curl_multi_add_handle(multi, easy);
}

namespace {

class TunedEngine : public kel::http::Engine {
 public:
    explicit TunedEngine(long longest_stall)
        : Engine([](const std::function<void()>& closure) { closure(); }), longest_stall_(longest_stall) {}
    ~TunedEngine() override { stop(); }

    // On the engine thread, before each attempt of each request. What is thrown here fails the request.
    void addTlsConfig(void* easy, std::shared_ptr<kel::http::Request> request) override {
        const bool is_post = request->config.method == kel::http::Method::POST;
        Engine::addTlsConfig(easy, std::move(request));
        // Less than one byte a second, as an average over five, for so many seconds: a time-out.
        set(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
        set(easy, CURLOPT_LOW_SPEED_TIME, longest_stall_);
        set(easy, CURLOPT_ACCEPT_ENCODING, "");  // whatever this libcurl can unpack
        // Over a connection that has served before, libcurl sends a request again when the connection turns out to be dead.
        if (is_post) set(easy, CURLOPT_FRESH_CONNECT, 1L);
    }

 private:
    template <typename Value>
    static void set(void* easy, CURLoption option, Value value) {
        const CURLcode result = curl_easy_setopt(easy, option, value);
        if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
    }

    const long longest_stall_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return std::fprintf(stderr, "usage: %s SECONDS URL...\n", argv[0]), 1;

    int waiting = argc - 2;  // here and below: the executor's thread
    int failed = 0;
    std::promise<int> exit_code;
    ko::thread_executor executor("example");  // outlives the engine, which posts to it
    TunedEngine engine(std::atol(argv[1]));
    const auto client = kel::http::createClient(executor, *logging::getLogger("example", 0));

    const auto finish = [&] {
        if (--waiting == 0) exit_code.set_value(failed == 0 ? 0 : 1);
    };
    const auto on_response = [&](kel::http::Client::RequestId, const kel::http::ResponseData& response) {
        std::printf("status %d, %zu bytes\n", response.status, response.body.size());
        finish();
    };
    const auto on_error = [&](kel::http::Client::RequestId, const kel::http::ErrorData& error) {
        std::fprintf(stderr, "no answer: %s\n", error.message.c_str());
        ++failed;
        finish();
    };
    executor.post(
        [&] {
            for (int i = 2; i < argc; ++i) {
                kel::http::RequestConfig request;
                request.url = argv[i];
                client->start_request(request, {}, on_response, on_error);
            }
        },
        0);
    return exit_code.get_future().get();
}
