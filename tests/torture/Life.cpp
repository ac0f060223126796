// SPDX-License-Identifier: MIT
#include "torture/Life.h"

#include <poll.h>

#include <future>
#include <map>
#include <new>
#include <utility>

#include "checksum/Digest.h"
#include "logging/Logger.h"

namespace kel::http::torture {
namespace {

// Runs `work` as a caller of the library; what it throws is told as text, "" for std::bad_alloc, which is allowed.
std::optional<std::string> asCaller(const std::function<void()>& work) {
    try {
        const Acting caller(Role::caller);
        work();
        return std::nullopt;
    } catch (const std::bad_alloc&) {
        return "";
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "no std::exception";
    }
}

std::string textOf(const ResponseData& data) {
    std::string text = std::to_string(data.status) + '\n';
    std::map<std::string, std::string> sorted(data.headers.begin(), data.headers.end());
    sorted.erase("Date");
    for (const auto& [name, value] : sorted) text.append(name).append(": ").append(value).append("\n");
    return text + '\n' + data.body;
}

ClientOptions withChecksum() {
    ClientOptions options;
    options.download_digest = &checksum::sha256;
    return options;
}

}  // namespace

bool Transcript::succeeded(std::size_t steps) const {
    if (outcomes.size() != steps) return false;
    for (const Outcome& outcome : outcomes) {
        if (outcome.how != Outcome::How::response) return false;
    }
    return true;
}

Life::Life(const Scenario& scenario, const Place& place, std::chrono::seconds patience)
    : scenario_(scenario), place_(place), patience_(patience) {}

Transcript Life::run(const std::optional<Plan>& plan) {
    ko::loop_executor executor;
    if (plan) faults::arm(*plan);
    makeEngine();
    if (engine_) runWithEngine(executor);
    faults::suspend();
    return std::exchange(transcript_, {});
}

void Life::runWithEngine(ko::loop_executor& executor) {
    transcript_.engine = true;
    if (scenario_.proxies) engine_->setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    makeClient(executor);
    if (client_) {
        for (const Step& step : scenario_.steps(place_.surroundings())) {
            if (!take(step, executor)) break;
        }
    }
    // Behind the outcome the engine still lets go of the transfer, and writes what there is to write.
    settle(executor);
    faults::suspend();
    if (!transcript_.stuck) probe(executor);
    if (!transcript_.stuck) settle(executor);
    if (transcript_.stuck) {
        static_cast<void>(engine_.release());  // waiting for its end would be in vain
        return;
    }
    faults::resume();
    const auto thrown = asCaller([this] {
        client_.reset();
        engine_.reset();
    });
    if (thrown) transcript_.findings.push_back("the end of the client or the engine throws " + *thrown);
}

void Life::makeEngine() {
    const auto thrown = asCaller(
        [this] { engine_ = std::make_unique<Engine>([](const std::function<void()>& completion) { completion(); }); });
    if (!thrown) return;
    if (!thrown->empty()) transcript_.findings.push_back("the engine's constructor throws " + *thrown);
    if (!Engine::hasEngine()) return;
    transcript_.findings.emplace_back("there is an engine although its constructor has thrown");
    transcript_.stuck = true;
}

void Life::makeClient(ko::loop_executor& executor) {
    const ClientOptions options = withChecksum();
    logging::Logger& logger = *logging::getLogger("Torture", 0);
    const auto thrown = asCaller([&] { client_ = createClient(executor, logger, options); });
    if (thrown && !thrown->empty()) transcript_.findings.push_back("createClient() throws " + *thrown);
}

bool Life::take(const Step& step, ko::loop_executor& executor) {
    const std::size_t before = transcript_.outcomes.size();
    running_ = NoRequestId;
    Client::RequestId id = NoRequestId;
    const auto thrown = asCaller([&] { id = start(step); });
    if (thrown) {
        if (!thrown->empty()) transcript_.findings.push_back("start() throws " + *thrown);
        settle(executor);
        if (transcript_.outcomes.size() != before)
            transcript_.findings.emplace_back("an outcome although start() threw");
        transcript_.outcomes.push_back({Outcome::How::refused, {}});
        return false;
    }
    running_ = id;
    if (!await([&] { return transcript_.outcomes.size() > before; }, executor)) {
        transcript_.findings.emplace_back("no outcome");
        transcript_.outcomes.push_back({Outcome::How::lost, {}});
        client_->cancel_request(id);
        return false;
    }
    return transcript_.outcomes.back().how == Outcome::How::response;
}

Client::RequestId Life::start(const Step& step) {
    const Client::ResponseCallback on_response = [this](Client::RequestId id, const ResponseData& data) {
        const Acting bystander(Role::bystander);
        hear(id, {Outcome::How::response, textOf(data)});
    };
    const Client::ErrorCallback on_error = [this](Client::RequestId id, const ErrorData& data) {
        const Acting bystander(Role::bystander);
        hear(id, {Outcome::How::error, std::to_string(static_cast<int>(data.failure)) + ' ' + data.message});
        if (data.message.empty()) transcript_.findings.emplace_back("an error without a word");
    };
    if (step.target.empty()) return client_->start_request(step.config, {}, on_response, on_error);
    return client_->start_download(step.config, step.target, {}, on_response, on_error,
                                   [](Client::RequestId, const ProgressData&) {});
}

void Life::hear(Client::RequestId id, Outcome outcome) {
    if (running_ != NoRequestId && id != running_) transcript_.findings.emplace_back("an outcome of a foreign id");
    if (++heard_ > transcript_.outcomes.size() + 1) transcript_.findings.emplace_back("a second outcome");
    transcript_.outcomes.push_back(std::move(outcome));
}

bool Life::await(const std::function<bool()>& happened, ko::loop_executor& executor) const {
    const auto end = std::chrono::steady_clock::now() + patience_;
    while (!happened()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd posted{executor.descriptor(), POLLIN, 0};
        if (left.count() <= 0 || poll(&posted, 1, static_cast<int>(left.count())) == 0) return false;
        const Acting caller(Role::caller);
        executor.drain();
    }
    return true;
}

// A task queued by a task runs in the next pass of the loop, so both a pass and its completions lie between the two.
void Life::settle(ko::loop_executor& executor) {
    for (int pass = 0; pass < 2 && !transcript_.stuck; ++pass) {
        const auto ran = std::make_shared<std::promise<void>>();
        std::future<void> result = ran->get_future();
        engine_->queueRequest([ran] { ran->set_value(); });
        if (result.wait_for(patience_) != std::future_status::ready) {
            transcript_.findings.emplace_back("the engine runs no tasks any more");
            transcript_.stuck = true;
        }
    }
    const Acting caller(Role::caller);
    while (executor.drain() != 0) {
    }
}

void Life::probe(ko::loop_executor& executor) {
    const Step step = scenario_.steps(place_.surroundings()).front();
    RequestConfig config;
    config.url = place_.probeUrl();
    config.cookie_jar = CookieJar::no_cookies;
    config.proxies = step.config.proxies;
    config.ca_file = step.config.ca_file;
    config.own_cert = step.config.own_cert;
    config.own_pkey = step.config.own_pkey;
    std::string answer;
    const std::shared_ptr<Client> client = createClient(executor, *logging::getLogger("Torture", 0));
    client->start_request(
        config, {}, [&](Client::RequestId, const ResponseData& data) { answer = data.body; },
        [&](Client::RequestId, const ErrorData& data) { answer = "error: " + data.message; });
    if (!await([&] { return !answer.empty(); }, executor)) answer = "silence";
    if (answer != Place::probe_answer) transcript_.findings.push_back("a later request gets: " + answer);
}

}  // namespace kel::http::torture
