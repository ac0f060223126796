// SPDX-License-Identifier: MIT
#include "Session.h"

#include "common/FailureName.h"

namespace kel::http::demo {
Session::Session(EventLoop& loop, OriginServer& server)
    : loop_(loop), server_(server), client_(createClient(loop.executor(), *logging::getLogger("kel-http-demo", 0))) {}

Session::~Session() {
    server_.on_stall([] {});
}

std::vector<Result> Session::run(const Scenario& scenario) {
    std::vector<Result> results(scenario.times);
    unfinished_ = results.size();
    begin_ = std::chrono::steady_clock::now();
    for (Result& result : results) start(scenario, result);
    loop_.run_until([this] { return unfinished_ == 0; }, scenario.path);
    server_.on_stall([] {});
    return results;
}

void Session::start(const Scenario& scenario, Result& result) {
    const auto on_response = [this, &scenario, &result](Client::RequestId, const ResponseData& response) {
        result.received_bytes = response.body.size();
        result.timing = response.timing_data;
        result.complaint = scenario.complaint(response);
        finish(scenario, result, Result::Kind::Response, std::to_string(response.status));
    };
    const auto on_error = [this, &scenario, &result](Client::RequestId, const ErrorData& error) {
        finish(scenario, result, Result::Kind::Error, std::string(tool::failure_name(error.failure)));
    };
    if (scenario.cancel_when_stalled) cancel_when_stalled(scenario, result);
    last_started_ = client_->start_request(scenario.request, {}, on_response, on_error);
}

// The server tells, on a thread of its own, that the request waits for an answer which never comes. By the time the
// posted task runs, on this thread, the request has its id.
void Session::cancel_when_stalled(const Scenario& scenario, Result& result) {
    server_.on_stall([this, &scenario, &result] {
        loop_.executor().post([this, &scenario, &result] { cancel(scenario, result, last_started_); }, 0);
    });
}

void Session::cancel(const Scenario& scenario, Result& result, Client::RequestId id) {
    client_->cancel_request(id);
    loop_.after_engine([this, &scenario, &result] { finish(scenario, result, Result::Kind::Cancelled, "cancelled"); });
}

void Session::finish(const Scenario& scenario, Result& result, Result::Kind kind, const std::string& outcome) {
    result.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin_);
    result.kind = kind;
    result.outcome = outcome;
    if (outcome != scenario.expected_outcome) result.complaint = "expected " + scenario.expected_outcome;
    --unfinished_;
}

}  // namespace kel::http::demo
