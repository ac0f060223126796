// SPDX-License-Identifier: MIT
// Fetches one page with an engine and a request of its own, derived from the library's. Exits with 0 when that has worked
// and what the program keeps in them is untouched.
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

#include "OneReplyServer.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/curl/Request.h"

namespace {

constexpr const char* expected_body = "served";
constexpr const char* mark = "the program's own";

// The library's part grows into `own` when the program was built with another size of it.
class OwnEngine : public kel::http::Engine {
 public:
    OwnEngine() : Engine([](const std::function<void()>& closure) { closure(); }) {}
    ~OwnEngine() override { stop(); }
    OwnEngine(const OwnEngine&) = delete;
    OwnEngine& operator=(const OwnEngine&) = delete;

    void addTlsConfig(void* easy, std::shared_ptr<kel::http::Request> request) override {
        ++set_up;
        Engine::addTlsConfig(easy, request);
    }

    std::string own = mark;
    int set_up = 0;
};

class OwnRequest : public kel::http::Request {
 public:
    using Request::Request;

    int notifyDataReceived(std::string_view data) override {
        body.append(data);
        return isPaused() ? 1 : 0;
    }
    void notifyDataEnd() override { outcome.set_value(takeRedirectUrl().value_or("")); }
    void notifyFailure(kel::http::Failure /*failure*/, std::string_view text) override {
        outcome.set_value("failed: " + std::string(text));
    }

    std::string own = mark;
    std::string body;
    std::promise<std::string> outcome;
};

}  // namespace

int main() {
    // A proxy of the machine's can not reach this server.
    for (const char* const variable : {"http_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(variable);
    const OneReplyServer server(expected_body);
    OwnEngine engine;

    kel::http::RequestConfig config;
    config.url = server.url();
    const auto request = std::make_shared<OwnRequest>(config);
    request->remainingProxies = {"never.asked"};
    request->runRequest();
    const std::string outcome = request->outcome.get_future().get();

    std::printf("outcome: %s\nbody: %s\nstatus: %u\n", outcome.c_str(), request->body.c_str(),
                request->getResponseCode());
    const bool served =
        outcome.find(config.url) == 0 && request->body == expected_body && request->getResponseCode() == 200;
    const bool untouched = engine.own == mark && engine.set_up == 1 && request->own == mark &&
                           request->remainingProxies.size() == 1 && request->id() == 1;
    return served && untouched ? EXIT_SUCCESS : EXIT_FAILURE;
}
