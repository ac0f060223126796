// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>

#include "Observation.h"
#include "Script.h"
#include "kel-http/Client.h"
#include "world/World.h"

namespace kel::http::simulation {

// An executor that runs a task when the world lets it, on the simulator's thread.
class WorldExecutor final : public ko::executor {
 public:
    void post(std::function<void()> task, int tag) override;

    bool hasTask() const { return !tasks_.empty(); }
    void runOne();

 private:
    std::deque<std::function<void()>> tasks_;
};

// Those who start requests and have second thoughts: what a script says that callers do.
class Callers {
 public:
    Callers(World& world, const Script& script, Observation& observation);

    // Cancels what still runs without a limit, so that the world can come to an end.
    void giveUp();
    // Lets go of clients and handles.
    void leave();
    bool isWaiting() const;
    // Whether there is still something to do.
    bool isDone() const { return plan_.empty(); }

 private:
    struct Step {
        Time at;
        std::function<void()> act;
    };
    struct Running {
        Client::RequestId id = NoRequestId;
        std::unique_ptr<Client::Handle> handle;
    };

    void plan(std::int64_t at, std::function<void()> act);
    Client& clientOf(const RequestScript& request);
    RequestConfig configOf(const RequestScript& request) const;
    void start(const RequestScript& request);
    void act(const ActionScript& action);
    void cancel(const RequestScript& request);
    void note(const RequestScript& request, SeenOutcome outcome);
    void noteProgress(std::int64_t id);
    void onResponse(const RequestScript& request, const ResponseData& data);
    void onError(const RequestScript& request, const ErrorData& data);

    World& world_;
    const Script& script_;
    Observation& observation_;
    WorldExecutor executor_;
    std::map<std::int64_t, std::shared_ptr<Client>> clients_;
    std::map<std::int64_t, Running> running_;
    std::deque<Step> plan_;
};

}  // namespace kel::http::simulation
