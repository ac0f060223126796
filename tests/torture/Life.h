// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"
#include "torture/Faults.h"
#include "torture/Place.h"
#include "torture/Scenario.h"

namespace kel::http::torture {

// What came of a request.
struct Outcome {
    enum class How { response, error, refused, lost };
    How how;
    // A response whole, an error with its number and words.
    std::string text;
};

// What came of a run.
struct Transcript {
    std::vector<Outcome> outcomes;
    // What was wrong whatever the scenario is.
    std::vector<std::string> findings;
    // Whether there was an engine at all.
    bool engine = false;
    // Nothing more can be done in this process.
    bool stuck = false;

    // Whether every one of `steps` requests was answered.
    bool succeeded(std::size_t steps) const;
};

// One run: an engine, a client and the requests of a scenario, from beginning to end, on this thread as the caller's.
class Life {
 public:
    Life(const Scenario& scenario, const Place& place, std::chrono::seconds patience);

    // With failures as planned, or without any.
    Transcript run(const std::optional<Plan>& plan);

 private:
    void runWithEngine(ko::loop_executor& executor);
    void makeEngine();
    void makeClient(ko::loop_executor& executor);
    // Whether the next one may follow.
    bool take(const Step& step, ko::loop_executor& executor);
    Client::RequestId start(const Step& step);
    bool await(const std::function<bool()>& happened, ko::loop_executor& executor) const;
    // Until all that was queued for the engine, and posted by it, has run.
    void settle(ko::loop_executor& executor);
    void probe(ko::loop_executor& executor);
    void hear(Client::RequestId id, Outcome outcome);

    const Scenario& scenario_;
    const Place& place_;
    const std::chrono::seconds patience_;
    Transcript transcript_;
    std::unique_ptr<Engine> engine_;
    std::shared_ptr<Client> client_;
    Client::RequestId running_ = NoRequestId;
    std::size_t heard_ = 0;
};

}  // namespace kel::http::torture
