// SPDX-License-Identifier: MIT
#include "soak/Caller.h"

#include <unistd.h>

#include <future>

#include "checksum/Digest.h"
#include "logging/Logger.h"
#include "support/Deadline.h"
#include "tools/common/FailureName.h"

namespace kel::http::soak {
namespace {

constexpr std::size_t at_once = 6;

void removeFiles(const Ask& ask) {
    if (!ask.target.empty()) unlink(ask.target.c_str());
    if (ask.config.body_is_file) unlink(ask.config.body.c_str());
    for (const MimePart& part : ask.config.mime_parts) {
        if (!part.file_path.empty()) unlink(part.file_path.c_str());
    }
}

}  // namespace

Caller::Caller(const std::string& name, std::uint32_t seed, const std::vector<Kind>& mixture, Tally& tally)
    : name_(name), mixture_(mixture), tally_(tally), random_(seed), executor_(name.c_str()) {}

void Caller::run(const std::function<void()>& work) {
    std::promise<void> done;
    executor_.post(
        [&] {
            work();
            done.set_value();
        },
        0);
    done.get_future().get();
}

void Caller::begin(const Addresses& to) {
    run([&] {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            filling_ = true;
            idle_ = false;
        }
        to_ = to;
        renewClient();
        fill();
    });
}

void Caller::finish() {
    run([this] {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            filling_ = false;
        }
        for (const auto& [serial, running] : running_) resume(running);
        fill();
    });
}

void Caller::awaitEnd() {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool ended = changed_.wait_for(lock, test::Deadline, [this] { return idle_; });
    lock.unlock();
    run([this, ended] {
        if (!ended) {
            for (const auto& [serial, running] : running_) tally_.noteFault("no outcome: " + describe(serial));
        }
        client_.reset();
    });
}

void Caller::renewClient() {
    ClientOptions options;
    if (below(random_, 2) == 0) options.download_digest = &checksum::sha256;
    client_ = createClient(executor_, *logging::getLogger("Soak", 0), options);
}

void Caller::fill() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (filling_ && running_.size() < at_once) {
        lock.unlock();
        startOne();
        lock.lock();
    }
    if (filling_ || !running_.empty()) return;
    idle_ = true;
    changed_.notify_all();
}

void Caller::startOne() {
    if (below(random_, 300) == 0) renewClient();
    const Kind& kind = mixture_[below(random_, static_cast<unsigned>(mixture_.size()))];
    const std::uint64_t serial = ++last_serial_;
    Running& running = running_[serial];
    running.kind = kind.name;
    running.ask = kind.ask(to_, random_, name_ + '-' + std::to_string(serial));
    tally_.noteStart();
    start(serial, running);
    if (below(random_, 20) == 0) disturb(serial, running);
}

void Caller::start(std::uint64_t serial, Running& running) {
    const RequestConfig& config = running.ask.config;
    const std::string& target = running.ask.target;
    running.client = client_;
    const auto response = [this, serial](const ResponseData& data) { hearResponse(serial, data); };
    const auto error = [this, serial](const ErrorData& data) { hearError(serial, data); };
    const auto progress = [this, serial](const ProgressData& data) { hearProgress(serial, data); };
    if (below(random_, 3) == 0) {
        running.handle = target.empty() ? client_->start_request(config, {}, response, error)
                                        : client_->start_download(config, target, {}, response, error, progress);
        return;
    }
    const auto response_of = [response](Client::RequestId, const ResponseData& data) { response(data); };
    const auto error_of = [error](Client::RequestId, const ErrorData& data) { error(data); };
    running.id = target.empty() ? client_->start_request(config, {}, response_of, error_of)
                                : client_->start_download(
                                      config, target, {}, response_of, error_of,
                                      [progress](Client::RequestId, const ProgressData& data) { progress(data); });
}

std::string Caller::describe(std::uint64_t serial) const {
    const auto found = running_.find(serial);
    const std::string text = name_ + '-' + std::to_string(serial);
    if (found == running_.end()) return text;
    const Ask& ask = found->second.ask;
    return text + ", " + found->second.kind + ' ' + ask.config.url + (ask.target.empty() ? "" : " to a file");
}

void Caller::hearResponse(std::uint64_t serial, const ResponseData& data) {
    const auto found = running_.find(serial);
    if (found != running_.end() && !found->second.ask.isRight(data)) {
        tally_.noteFault("a wrong response: " + describe(serial) + ", status " + std::to_string(data.status) + ", " +
                         std::to_string(data.body.size()) + " bytes");
    }
    end(serial, "response");
}

void Caller::hearError(std::uint64_t serial, const ErrorData& data) {
    const auto found = running_.find(serial);
    if (found != running_.end() && found->second.ask.succeeds && data.failure != ClientFailure::Timeout) {
        tally_.noteFault("an error: " + describe(serial) + ": " + std::string(tool::failure_name(data.failure)) + ", " +
                         data.message);
    }
    end(serial, std::string(tool::failure_name(data.failure)));
}

void Caller::hearProgress(std::uint64_t serial, const ProgressData& /*data*/) {
    const auto found = running_.find(serial);
    if (found == running_.end()) tally_.noteFault("progress after the end: " + describe(serial));
    disturbAny();
    fill();
}

// Whoever has ended or been cancelled is not among those running any more.
void Caller::end(std::uint64_t serial, const std::string& how) {
    const auto found = running_.find(serial);
    if (found == running_.end()) return tally_.noteFault("an outcome after the end: " + describe(serial));
    removeFiles(found->second.ask);
    tally_.noteEnd(how);
    running_.erase(found);
    disturbAny();
    fill();
}

void Caller::disturbAny() {
    if (running_.empty() || below(random_, 3) != 0) return;
    auto chosen = running_.begin();
    std::advance(chosen, below(random_, static_cast<unsigned>(running_.size())));
    disturb(chosen->first, chosen->second);
}

// Ids alone can be paused: who keeps a handle has none.
void Caller::disturb(std::uint64_t serial, Running& running) {
    const unsigned what = below(random_, 8);
    if (what == 0) return cancel(serial, running);
    const std::shared_ptr<Client> client = running.client.lock();
    if (!client || running.id == NoRequestId) return;
    if (what < 4) client->pause_request(running.id);
    if (what > 1) client->resume_request(running.id);
}

void Caller::resume(const Running& running) {
    const std::shared_ptr<Client> client = running.client.lock();
    if (client && running.id != NoRequestId) client->resume_request(running.id);
}

void Caller::cancel(std::uint64_t serial, Running& running) {
    const std::shared_ptr<Client> client = running.client.lock();
    if (!client && !running.handle) return;
    if (!running.handle) client->cancel_request(running.id);
    running.handle.reset();
    removeFiles(running.ask);
    tally_.noteEnd("cancelled");
    running_.erase(serial);
}

}  // namespace kel::http::soak
