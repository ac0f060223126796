// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Observation.h"
#include "Script.h"
#include "kel-http/curl/Request.h"
#include "world/World.h"

namespace kel::http::simulation {

// A request of a program that goes to the engine without a client. It notes what its hooks are told, and which of them come
// where they must not.
//
// Threads: owned by the simulator's thread. Its final hook comes on the engine's, unless completions are posted.
class OwnRequest final : public Request {
 public:
    // Whom it tells of what happens, on the thread on which it does.
    using Listener = std::function<void(Moment)>;
    OwnRequest(World& world, Observation& observation, const RequestScript& script, bool is_posting,
               const RequestConfig& request_config, Listener listener);

    // Once more, if the last run has ended or was cancelled.
    void start();
    void cancel();
    // The engine has been destroyed.
    void orphan();
    bool isRunning() const;

    int notifyDataReceived(std::string_view data) override;
    void notifyHeader(std::string_view line) override;
    void notifyDataEnd() override;
    void notifyFailure(Failure failure, std::string_view text) override;

 private:
    SeenRequest& seen() { return observation_.requests[script_.id]; }
    void complain(const std::string& what);
    // In the context where all but the final hooks come.
    void checkHook(const char* hook);
    void end(SeenOutcome outcome);

    World& world_;
    Observation& observation_;
    const RequestScript script_;
    const bool is_posting_;
    const Listener listener_;
    // Of the run of which the hooks tell.
    bool has_headers_ = false;
    std::string body_;
};

}  // namespace kel::http::simulation
