// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "EventLoop.h"
#include "OriginServer.h"
#include "Scenario.h"
#include "kel-http/Client.h"

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
    Session(EventLoop& loop, OriginServer& server);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // One result for each request.
    //
    // Errors: as EventLoop::run_until. The session is of no use any more then.
    std::vector<Result> run(const Scenario& scenario);

 private:
    void start(const Scenario& scenario, Result& result);
    void finish(const Scenario& scenario, Result& result, Result::Kind kind, const std::string& outcome);
    void cancel_when_stalled(const Scenario& scenario, Result& result);
    void cancel(const Scenario& scenario, Result& result, Client::RequestId id);

    EventLoop& loop_;
    OriginServer& server_;
    const std::shared_ptr<Client> client_;
    std::size_t unfinished_ = 0;
    Client::RequestId last_started_ = NoRequestId;
    std::chrono::steady_clock::time_point begin_;
};

}  // namespace kel::http::demo
