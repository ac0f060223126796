// SPDX-License-Identifier: MIT
// What callers do to their requests.
#include <algorithm>
#include <stdexcept>
#include <utility>

#include "parties/Callers.h"
#include "parties/Configs.h"

namespace kel::http::simulation {

// A client belongs to the simulator's thread: what a hook on the engine's leads to comes as the caller's next step.
void Callers::happen(std::int64_t request, Moment moment) {
    const auto perform = [this](const void* step, std::function<void()> act) {
        if (has_given_up_ || !done_.insert(step).second) return;
        if (world_.baton.isSimulator()) return act();
        plan_.push_front({world_.now(), std::move(act)});
    };
    for (const ActionScript& action : script_.actions) {
        if (action.when != moment || action.whose != request) continue;
        perform(&action, [this, &action] { act(action); });
    }
    for (const RequestScript& one : script_.requests) {
        if (moment != Moment::outcome || one.after != request) continue;
        perform(&one, [this, &one] { start(one); });
    }
}

void Callers::noteDeed(const ActionScript& action) {
    const SeenRequest& seen = observation_.requests[action.request];
    SeenDeed deed;
    deed.at = world_.now();
    deed.deed = action.deed;
    deed.request = action.request;
    deed.isRunning = seen.started && !seen.cancelled && seen.outcomes.empty();
    const RequestScript* const request = script_.request(action.request);
    deed.isQueued = request != nullptr && executors_.of(request->client).hasTask();
    observation_.deeds.push_back(deed);
}

void Callers::act(const ActionScript& action) {
    const RequestScript* const request = script_.request(action.request);
    if (request == nullptr) return;
    world_.note("caller", std::string(nameOf(action.deed)) + ' ' + std::to_string(request->id));
    noteDeed(action);
    switch (action.deed) {
        case Deed::cancel:
            return cancel(*request);
        case Deed::pause:
            return pause(*request, true);
        case Deed::resume:
            return pause(*request, false);
        case Deed::settle:
            if (engine_) engine_->settle();
            return;
        case Deed::dropClient:
            return dropClient(*request);
        case Deed::destroyEngine:
            return destroyEngine();
        case Deed::rerun:
            return rerun(*request);
        case Deed::queue:
            return queueTask(request->id);
        case Deed::listen:
            return listen();
        case Deed::endExecutor:
            return endExecutor(*request);
        case Deed::grow:
        case Deed::shrink:
        case Deed::remove:
            return changeFiles(*request, action.deed);
    }
}

// A client that its caller has dropped lives as long as its requests; whoever knows an id can not cancel it any more, save for
// the world's end.
void Callers::cancel(const RequestScript& request) {
    const auto known = running_.find(request.id);
    if (known == running_.end()) return;
    SeenRequest& seen = observation_.requests[request.id];
    Running& running = known->second;
    if (running.own) {
        if (seen.outcomes.empty() && seen.runs.size() == 1) seen.cancelled = true;
        return running.own->cancel();
    }
    const std::shared_ptr<Client> client = running.client.lock();
    if (!seen.cancelled && seen.outcomes.empty()) {
        seen.cancelled = true;
        seen.cancelledAt = world_.now();
    }
    running.handle.reset();
    if (client && running.id != NoRequestId) client->cancel_request(running.id);
}

void Callers::pause(const RequestScript& request, bool on) {
    const auto known = running_.find(request.id);
    if (known == running_.end()) return;
    const Running& running = known->second;
    if (running.own) return on ? running.own->pauseRequest() : running.own->resumeRequest();
    const std::shared_ptr<Client> client = running.client.lock();
    if (client) on ? client->pause_request(running.id) : client->resume_request(running.id);
}

void Callers::rerun(const RequestScript& request) {
    const auto known = running_.find(request.id);
    if (known != running_.end() && known->second.own) known->second.own->start();
}

// Those of its requests that have no handle can not be cancelled by their caller any more.
void Callers::dropClient(const RequestScript& request) {
    clients_.erase(request.client);
}

void Callers::destroyEngine() {
    if (!engine_) return;
    for (auto& [id, seen] : observation_.requests) {
        if (seen.outcomes.empty() && !seen.cancelled) seen.orphaned = true;
    }
    for (auto& [id, running] : running_) {
        if (running.own) running.own->orphan();
    }
    observation_.engineEnd = world_.now();
    world_.trace.beginAnyOrder();
    engine_.reset();
    world_.trace.endAnyOrder();
    world_.note("caller", "has no engine any more");
}

// Cancel, settle, end: nothing may come to it behind that.
void Callers::endExecutor(const RequestScript& request) {
    WorldExecutor& executor = executors_.of(request.client);
    for (const auto& [id, running] : running_) {
        const RequestScript& one = *script_.request(id);
        if (one.own == 0 && &executors_.of(one.client) == &executor) cancel(one);
    }
    if (engine_) engine_->settle();
    while (executors_.completions().hasTask()) executors_.completions().runOne();
    executor.end();
    for (const RequestScript& one : script_.requests) {
        if (&executors_.of(one.client) == &executor) clients_.erase(one.client);
    }
}

void Callers::changeFiles(const RequestScript& request, Deed deed) {
    const auto known = running_.find(request.id);
    if (known == running_.end()) return;
    SeenRequest& seen = observation_.requests[request.id];
    for (const std::string& name : filesOf(request)) {
        if (!folder_.has(name)) continue;
        const std::string content = folder_.get(name);
        seen.isChanged = true;
        seen.isRemoved = deed == Deed::remove;
        if (deed == Deed::remove) {
            folder_.remove(name);
            continue;
        }
        seen.changed = deed == Deed::grow ? content + "more" : content.substr(0, content.size() / 2);
        folder_.put(name, seen.changed);
    }
}

// Each second one throws, which is its own affair.
void Callers::queueTask(std::int64_t number) {
    if (!engine_) return;
    ++observation_.tasksQueued;
    engine_->queueRequest([this, number] {
        world_.note("task", std::to_string(number));
        ++observation_.tasksRun;
        if (world_.baton.isSimulator()) observation_.violations.emplace_back("a task runs beside the engine thread");
        if (number % 2 != 0) throw std::runtime_error("a task's own affair");
    });
}

void Callers::listen() {
    if (!engine_) return;
    engine_->onNewRequest([this] {
        world_.note("task", "a request is set up");
        if (world_.baton.isSimulator()) observation_.violations.emplace_back("a set-up beside the engine thread");
    });
}

bool Callers::isWaiting() const {
    return std::any_of(observation_.requests.begin(), observation_.requests.end(), [this](const auto& entry) {
        const SeenRequest& seen = entry.second;
        const auto known = running_.find(entry.first);
        if (known != running_.end() && known->second.own) return known->second.own->isRunning();
        return seen.started && !seen.orphaned && seen.outcomes.empty() && !seen.cancelled;
    });
}

void Callers::giveUp() {
    plan_.clear();
    has_given_up_ = true;
    for (const RequestScript& request : script_.requests) {
        const auto known = running_.find(request.id);
        if (known == running_.end()) continue;
        SeenRequest& seen = observation_.requests[request.id];
        const bool runs = known->second.own ? known->second.own->isRunning() : seen.outcomes.empty() && !seen.cancelled;
        if (!runs && !seen.orphaned) continue;
        seen.givenUp = runs && !seen.orphaned;
        cancel(request);
    }
}

void Callers::leave() {
    running_.clear();
    clients_.clear();
    observation_.survivors = remains_.survivors(folder_.pathOf({}));
    observation_.contents = folder_.contents();
}

}  // namespace kel::http::simulation
