// SPDX-License-Identifier: MIT
// What callers start, and what they are told.
#include "parties/Callers.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "parties/Configs.h"

namespace kel::http::simulation {
namespace {

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

Callers::Callers(World& world, const Script& script, Observation& observation, Executors& executors,
                 const Folder& folder, std::unique_ptr<Engine>& engine)
    : world_(world),
      script_(script),
      observation_(observation),
      executors_(executors),
      engine_(engine),
      folder_(folder) {
    for (const RequestScript& request : script.requests) {
        if (request.after < 0) plan(request.at, [this, &request] { start(request); });
    }
    for (const ActionScript& action : script.actions) {
        if (action.when == Moment::time) plan(action.at, [this, &action] { act(action); });
    }
    std::stable_sort(plan_.begin(), plan_.end(), [](const Step& one, const Step& other) { return one.at < other.at; });
    addActors();
}

void Callers::addActors() {
    world_.add({"caller", [this] { return !plan_.empty() && plan_.front().at <= world_.now(); },
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

std::shared_ptr<Client> Callers::clientOf(const RequestScript& request) {
    auto& client = clients_[request.client];
    if (!client) {
        client =
            createClient(executors_.of(request.client), *logging::getLogger("simulation", 0), clientOptions(script_));
        remains_.watch("client " + std::to_string(request.client), client);
    }
    return client;
}

void Callers::start(const RequestScript& request) {
    if (executors_.of(request.client).hasEnded()) return;
    SeenRequest& seen = observation_.requests[request.id];
    seen.started = true;
    seen.startedAt = world_.now();
    seen.orphaned = !engine_;
    world_.note("caller", "starts " + std::to_string(request.id));
    if (request.own != 0) return startOwn(request);
    const std::shared_ptr<Client> client = clientOf(request);
    Running& running = running_[request.id];
    running.client = client;
    if (request.download != 0) return startDownload(request, *client, running);
    startPlain(request, *client, running);
}

void Callers::startOwn(const RequestScript& request) {
    const auto own = std::make_shared<OwnRequest>(world_, observation_, request, script_.world.posting != 0,
                                                  configOf(script_, request, folder_),
                                                  [this, id = request.id](Moment moment) { happen(id, moment); });
    running_[request.id].own = own;
    remains_.watch("request " + std::to_string(request.id), own);
    own->start();
}

void Callers::startPlain(const RequestScript& request, Client& client, Running& running) {
    const RequestConfig config = configOf(script_, request, folder_);
    if (request.handle != 0) {
        running.handle = std::make_unique<Client::Handle>(client.start_request(
            config, {}, [this, &request](const ResponseData& data) { onResponse(request, data); },
            [this, &request](const ErrorData& data) { onError(request, data); }));
        return;
    }
    running.id = client.start_request(
        config, {}, [this, &request](auto, const ResponseData& data) { onResponse(request, data); },
        [this, &request](auto, const ErrorData& data) { onError(request, data); });
}

void Callers::startDownload(const RequestScript& request, Client& client, Running& running) {
    if (request.download >= 2) folder_.put(targetOf(request), oldTarget(script_, request));
    const RequestConfig config = configOf(script_, request, folder_);
    const std::string path = folder_.pathOf(targetOf(request));
    if (request.handle != 0) {
        running.handle = std::make_unique<Client::Handle>(client.start_download(
            config, path, {}, [this, &request](const ResponseData& data) { onResponse(request, data); },
            [this, &request](const ErrorData& data) { onError(request, data); },
            [this, &request](const ProgressData& data) { onProgress(request, data); }));
        return;
    }
    running.id = client.start_download(
        config, path, {}, [this, &request](auto, const ResponseData& data) { onResponse(request, data); },
        [this, &request](auto, const ErrorData& data) { onError(request, data); },
        [this, &request](auto, const ProgressData& data) { onProgress(request, data); });
}

void Callers::onResponse(const RequestScript& request, const ResponseData& data) {
    SeenOutcome outcome;
    outcome.status = data.status;
    outcome.body = data.body;
    if (request.download != 0) {
        outcome.digest = data.body;
        outcome.body = folder_.get(targetOf(request));
    }
    for (const auto& [name, value] : data.headers) outcome.headers[lowerCase(name)] = value;
    if (data.timing_data) outcome.timing = data.timing_data->total;
    note(request, std::move(outcome));
    happen(request.id, Moment::response);
    happen(request.id, Moment::outcome);
}

void Callers::onError(const RequestScript& request, const ErrorData& data) {
    SeenOutcome outcome;
    outcome.isError = true;
    outcome.failure = static_cast<int>(data.failure);
    outcome.message = folder_.withoutChance(data.message);
    note(request, std::move(outcome));
    happen(request.id, Moment::error);
    happen(request.id, Moment::outcome);
}

void Callers::onProgress(const RequestScript& request, const ProgressData& data) {
    SeenRequest& seen = observation_.requests[request.id];
    world_.note("caller", "hears of progress of " + std::to_string(request.id) + ": " + std::to_string(data.received));
    ++seen.progress;
    if (seen.cancelled || !seen.outcomes.empty()) ++seen.lateProgress;
    seen.reports.push_back({data.total, data.received});
    seen.mostProgress = std::max(seen.mostProgress, std::int64_t{data.received});
    happen(request.id, Moment::progress);
}

void Callers::note(const RequestScript& request, SeenOutcome outcome) {
    outcome.at = world_.now();
    world_.note("caller", "hears of " + std::to_string(request.id) + ": " +
                              (outcome.isError ? "error " + std::to_string(outcome.failure) + ", " + outcome.message
                                               : "status " + std::to_string(outcome.status) + ", " +
                                                     std::to_string(outcome.body.size()) + " bytes"));
    observation_.requests[request.id].outcomes.push_back(std::move(outcome));
}

}  // namespace kel::http::simulation
