// SPDX-License-Identifier: MIT
// Fetches one page from a server of its own, on a platform of its own. Exits with 0 when that has worked.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>

#include "consumer/OneReplyServer.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"

namespace {

constexpr const char* expected_body = "served";

// Runs its tasks on the thread that asks for them.
class TaskLoop final : public ko::executor {
 public:
    void post(std::function<void()> task, int /*tag*/) override {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        filled_.notify_one();
    }

    void run_one() {
        std::unique_lock lock(mutex_);
        filled_.wait(lock, [this] { return !tasks_.empty(); });
        const std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
    }

 private:
    std::mutex mutex_;
    std::condition_variable filled_;
    std::deque<std::function<void()>> tasks_;
};

// The page's body, or what went wrong instead.
std::string fetch(const std::string& url) {
    TaskLoop loop;
    kel::http::Engine engine([](const std::function<void()>& closure) { closure(); });
    const auto client = kel::http::createClient(loop, *logging::getLogger("porting", 0));

    kel::http::RequestConfig request;
    request.url = url;
    tl::optional<std::string> outcome;
    const kel::http::Client::Handle handle = client->start_request(
        request, {}, [&outcome](const kel::http::ResponseData& response) { outcome = response.body; },
        [&outcome](const kel::http::ErrorData& error) { outcome = error.message; });
    while (!outcome) loop.run_one();
    return *outcome;
}

}  // namespace

int main() {
    // A proxy of the machine's can not reach this server.
    for (const char* const variable : {"http_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(variable);
    const OneReplyServer server(expected_body);
    const std::string body = fetch(server.url());
    std::printf("body: %s\n", body.c_str());
    return body == expected_body ? EXIT_SUCCESS : EXIT_FAILURE;
}
