// SPDX-License-Identifier: MIT
#include "parties/LastCaller.h"

#include <utility>

#include "kel-http/curl/Engine.h"

namespace kel::http::simulation {
namespace {

constexpr std::chrono::seconds limit(60);

}  // namespace

void LastCaller::ask(const std::string& url) {
    if (!Engine::hasEngine()) return;
    world_.add({"last executor", [this] { return executor_.hasTask(); }, [] { return Never; },
                [this] { executor_.runOne(); }});
    client_ = createClient(executor_, *logging::getLogger("simulation", 0));
    RequestConfig config;
    config.url = url;
    config.timeout = limit;
    config.proxy = Proxy::bypass_proxy;
    seen_.started = true;
    seen_.startedAt = world_.now();
    world_.note("last", "starts");
    client_->start_request(
        config, {},
        [this](auto, const ResponseData& data) {
            SeenOutcome outcome;
            outcome.status = data.status;
            note(std::move(outcome));
        },
        [this](auto, const ErrorData& data) {
            SeenOutcome outcome;
            outcome.isError = true;
            outcome.failure = static_cast<int>(data.failure);
            outcome.message = data.message;
            note(std::move(outcome));
        });
    const Time end = world_.now() + limit + limit;
    while (seen_.outcomes.empty() && world_.step(end)) {
    }
    client_.reset();
}

void LastCaller::note(SeenOutcome outcome) {
    outcome.at = world_.now();
    world_.note("last", outcome.isError ? outcome.message : std::to_string(outcome.status));
    seen_.outcomes.push_back(std::move(outcome));
}

}  // namespace kel::http::simulation
