// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "OriginServer.h"
#include "Scenario.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"

namespace kel::http::demo {

// How one request ended.
struct Result {
    enum class Kind { Response, Error, Cancelled };

    Kind kind = Kind::Cancelled;
    std::string outcome;  // the status, the failure's name, "cancelled"
    std::size_t received_bytes = 0;
    tl::optional<TimingData> timing;      // of a response
    std::chrono::microseconds elapsed{};  // from the request's start to its outcome
    std::string complaint;                // empty: just as expected
};

// Sends the requests of scenarios and waits for their outcomes, all on one thread.
class Session {
 public:
    explicit Session(OriginServer& server);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // One result for each request.
    //
    // Errors: std::runtime_error when an outcome is long overdue. The session is of no use any more then.
    std::vector<Result> run(const Scenario& scenario);

 private:
    void start(const Scenario& scenario, Result& result);
    void finish(const Scenario& scenario, Result& result, Result::Kind kind, const std::string& outcome);
    void cancel_when_stalled(const Scenario& scenario, Result& result);
    void cancel(const Scenario& scenario, Result& result, Client::RequestId id);
    void wait_for_all(const Scenario& scenario);

    OriginServer& server_;
    // The engine's thread posts to the executor until it has ended, so the executor goes last.
    ko::loop_executor executor_;
    Engine engine_;
    std::shared_ptr<Client> client_;
    std::size_t unfinished_ = 0;
    Client::RequestId last_started_ = NoRequestId;
    std::chrono::steady_clock::time_point begin_;
};

}  // namespace kel::http::demo
