// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "Observation.h"
#include "Script.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "parties/Executors.h"
#include "parties/Folder.h"
#include "parties/OwnRequests.h"
#include "parties/Remains.h"
#include "world/World.h"

namespace kel::http::simulation {

// Those who start requests and have second thoughts: what a script says that callers do, at its time or inside of a callback.
//
// Threads: the simulator's, save for happen(), which is told of an own request's hooks on the engine's.
class Callers {
 public:
    // `engine` may be destroyed here.
    Callers(World& world, const Script& script, Observation& observation, Executors& executors, const Folder& folder,
            std::unique_ptr<Engine>& engine);

    // Cancels what still runs without a limit, so that the world can come to an end.
    void giveUp();
    // Lets go of clients and handles, and tells what files there are.
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
        // Whoever has started it may have let go of its client.
        std::weak_ptr<Client> client;
        std::shared_ptr<OwnRequest> own;
    };

    void plan(std::int64_t at, std::function<void()> act);
    void addActors();
    std::shared_ptr<Client> clientOf(const RequestScript& request);

    void start(const RequestScript& request);
    void startOwn(const RequestScript& request);
    void startDownload(const RequestScript& request, Client& client, Running& running);
    void startPlain(const RequestScript& request, Client& client, Running& running);

    // Does what a script has bound to this moment, once.
    void happen(std::int64_t request, Moment moment);
    void noteDeed(const ActionScript& action);
    void onResponse(const RequestScript& request, const ResponseData& data);
    void onError(const RequestScript& request, const ErrorData& data);
    void onProgress(const RequestScript& request, const ProgressData& data);
    void note(const RequestScript& request, SeenOutcome outcome);

    void act(const ActionScript& action);
    void cancel(const RequestScript& request);
    void pause(const RequestScript& request, bool on);
    void rerun(const RequestScript& request);
    void dropClient(const RequestScript& request);
    void destroyEngine();
    void endExecutor(const RequestScript& request);
    void changeFiles(const RequestScript& request, Deed deed);
    void queueTask(std::int64_t number);
    void listen();

    World& world_;
    const Script& script_;
    Observation& observation_;
    Executors& executors_;
    std::unique_ptr<Engine>& engine_;
    const Folder& folder_;
    std::map<std::int64_t, std::shared_ptr<Client>> clients_;
    std::map<std::int64_t, Running> running_;
    std::deque<Step> plan_;
    // Steps that were bound to a moment and have been done.
    std::set<const void*> done_;
    bool has_given_up_ = false;
    Remains remains_;
};

}  // namespace kel::http::simulation
