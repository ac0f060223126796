// SPDX-License-Identifier: MIT
#include "parties/Callers.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "kel-http/curl/Engine.h"
#include "parties/Bytes.h"
#include "parties/HttpServer.h"
#include "parties/Proxies.h"

namespace kel::http::simulation {
namespace {

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

void WorldExecutor::post(std::function<void()> task, int /*tag*/) {
    tasks_.push_back(std::move(task));
}

void WorldExecutor::runOne() {
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
}

Callers::Callers(World& world, const Script& script, Observation& observation)
    : world_(world), script_(script), observation_(observation) {
    for (const RequestScript& request : script.requests) plan(request.at, [this, &request] { start(request); });
    for (const ActionScript& action : script.actions) plan(action.at, [this, &action] { act(action); });
    std::stable_sort(plan_.begin(), plan_.end(), [](const Step& one, const Step& other) { return one.at < other.at; });
    world.add(
        {"executor", [this] { return executor_.hasTask(); }, [] { return Never; }, [this] { executor_.runOne(); }});
    world.add({"caller", [this] { return !plan_.empty() && plan_.front().at <= world_.now(); },
               [this] { return plan_.empty() ? Never : plan_.front().at; },
               [this] {
                   const Step step = std::move(plan_.front());
                   plan_.pop_front();
                   step.act();
               }});
}

void Callers::plan(std::int64_t at, std::function<void()> act) {
    plan_.push_back({world_.now() + Time(at), std::move(act)});
}

Client& Callers::clientOf(const RequestScript& request) {
    auto& client = clients_[request.client];
    if (!client) client = createClient(executor_, *logging::getLogger("simulation", 0));
    return *client;
}

RequestConfig Callers::configOf(const RequestScript& request) const {
    static constexpr std::array<Method, 5> methods = {Method::GET, Method::POST, Method::PUT, Method::PATCH,
                                                      Method::DELETE};
    RequestConfig config;
    config.url = HttpServers::url(script_, request.host, request.exchange, request.id);
    config.method = methods[static_cast<std::size_t>(request.verb)];
    if (request.verb != Verb::GET) config.body = requestBody(request.id, request.body);
    config.timeout = std::chrono::milliseconds(request.timeout);
    if (request.sizeLimit >= 0) config.size_limit = static_cast<std::uint32_t>(request.sizeLimit);
    config.caller_handles_redirects = request.callerRedirects != 0;
    config.reset_state = request.freshState != 0;
    config.proxy = Proxy::bypass_proxy;
    addNetwork(config, script_, request);
    return config;
}

void Callers::start(const RequestScript& request) {
    SeenRequest& seen = observation_.requests[request.id];
    seen.started = true;
    seen.startedAt = world_.now();
    world_.note("caller", "starts " + std::to_string(request.id));
    Client& client = clientOf(request);
    Running& running = running_[request.id];
    if (request.handle != 0) {
        running.handle = std::make_unique<Client::Handle>(client.start_request(
            configOf(request), {}, [this, &request](const ResponseData& data) { onResponse(request, data); },
            [this, &request](const ErrorData& data) { onError(request, data); }));
        return;
    }
    running.id = client.start_request(
        configOf(request), {}, [this, &request](auto, const ResponseData& data) { onResponse(request, data); },
        [this, &request](auto, const ErrorData& data) { onError(request, data); });
}

void Callers::onResponse(const RequestScript& request, const ResponseData& data) {
    SeenOutcome outcome;
    outcome.status = data.status;
    outcome.body = data.body;
    for (const auto& [name, value] : data.headers) outcome.headers[lowerCase(name)] = value;
    note(request, std::move(outcome));
}

void Callers::onError(const RequestScript& request, const ErrorData& data) {
    SeenOutcome outcome;
    outcome.isError = true;
    outcome.failure = static_cast<int>(data.failure);
    outcome.message = data.message;
    note(request, std::move(outcome));
}

void Callers::note(const RequestScript& request, SeenOutcome outcome) {
    outcome.at = world_.now();
    world_.note("caller", "hears of " + std::to_string(request.id) + ": " +
                              (outcome.isError ? "error " + std::to_string(outcome.failure) + ", " + outcome.message
                                               : "status " + std::to_string(outcome.status) + ", " +
                                                     std::to_string(outcome.body.size()) + " bytes"));
    observation_.requests[request.id].outcomes.push_back(std::move(outcome));
}

void Callers::cancel(const RequestScript& request) {
    SeenRequest& seen = observation_.requests[request.id];
    if (!seen.started || seen.cancelled) return;
    world_.note("caller", "cancels " + std::to_string(request.id));
    if (seen.outcomes.empty()) {
        seen.cancelled = true;
        seen.cancelledAt = world_.now();
    }
    Running& running = running_[request.id];
    running.handle.reset();
    if (running.id != NoRequestId) clientOf(request).cancel_request(running.id);
}

void Callers::act(const ActionScript& action) {
    const RequestScript* const request = script_.request(action.request);
    if (request == nullptr) return;
    const Client::RequestId id = running_[request->id].id;
    switch (action.deed) {
        case Deed::cancel:
            return cancel(*request);
        case Deed::pause:
            world_.note("caller", "pauses " + std::to_string(request->id));
            return clientOf(*request).pause_request(id);
        case Deed::resume:
            world_.note("caller", "resumes " + std::to_string(request->id));
            return clientOf(*request).resume_request(id);
        case Deed::settle:
            world_.note("caller", "settles");
            return Engine::getEngine()->settle();
    }
}

bool Callers::isWaiting() const {
    return std::any_of(observation_.requests.begin(), observation_.requests.end(),
                       [](const auto& entry) { return entry.second.outcomes.empty() && !entry.second.cancelled; });
}

void Callers::giveUp() {
    for (const RequestScript& request : script_.requests) {
        if (observation_.requests[request.id].outcomes.empty()) cancel(request);
    }
}

void Callers::leave() {
    running_.clear();
    clients_.clear();
}

}  // namespace kel::http::simulation
