// SPDX-License-Identifier: MIT
#include "parties/OwnRequests.h"

#include <utility>

#include "kel-http/ClientFailure.h"
#include "kel-http/curl/Engine.h"

namespace kel::http::simulation {
namespace {

ClientFailure asClientsHaveIt(Failure failure) {
    switch (failure) {
        case Failure::WriteFailed:
            return ClientFailure::WriteFailed;
        case Failure::RangeError:
            return ClientFailure::RangeError;
        default:
            return static_cast<ClientFailure>(failure);
    }
}

}  // namespace

OwnRequest::OwnRequest(World& world, Observation& observation, const RequestScript& script, bool is_posting,
                       const RequestConfig& request_config, Listener listener)
    : Request(request_config),
      world_(world),
      observation_(observation),
      script_(script),
      is_posting_(is_posting),
      listener_(std::move(listener)) {}

bool OwnRequest::isRunning() const {
    const auto known = observation_.requests.find(script_.id);
    if (known == observation_.requests.end() || known->second.runs.empty()) return false;
    const SeenRun& run = known->second.runs.back();
    return run.finals == 0 && !run.cancelled && !run.orphaned;
}

void OwnRequest::start() {
    if (isRunning()) return;
    SeenRun run;
    run.orphaned = !Engine::hasEngine();
    seen().runs.push_back(run);
    runRequest();
}

void OwnRequest::cancel() {
    if (isRunning()) seen().runs.back().cancelled = true;
    tryToCancelRequest();
}

void OwnRequest::orphan() {
    if (isRunning()) seen().runs.back().orphaned = true;
}

void OwnRequest::complain(const std::string& what) {
    observation_.violations.push_back("request " + std::to_string(script_.id) + ": " + what);
}

// A cancellation takes effect when the engine has seen it, so that these hooks may come a little longer; a run that has
// been told its end has none.
void OwnRequest::checkHook(const char* hook) {
    if (world_.baton.isSimulator()) complain(std::string(hook) + " does not come on the engine thread");
    if (seen().runs.empty()) return complain(std::string(hook) + " comes before the request has run");
    if (seen().runs.back().finals != 0) complain(std::string(hook) + " comes behind the end");
}

int OwnRequest::notifyDataReceived(std::string_view data) {
    checkHook("data");
    if (!has_headers_) complain("data comes before the headers");
    if (isPaused()) return 1;
    body_ += data;
    listener_(Moment::data);
    return 0;
}

void OwnRequest::notifyHeader(std::string_view line) {
    checkHook("a header");
    // What has been received of an answer that was not the last one is not its body.
    if (line.substr(0, 5) == "HTTP/") {
        has_headers_ = true;
        body_.clear();
    }
    if (!has_headers_) complain("a header comes before the status line");
    listener_(Moment::header);
}

void OwnRequest::notifyDataEnd() {
    SeenOutcome outcome;
    outcome.status = static_cast<int>(getResponseCode());
    end(std::move(outcome));
}

void OwnRequest::notifyFailure(Failure failure, std::string_view text) {
    SeenOutcome outcome;
    outcome.isError = failure != Failure::AuthFailure && failure != Failure::HttpError;
    outcome.status = static_cast<int>(getResponseCode());
    if (outcome.isError) outcome.failure = static_cast<int>(asClientsHaveIt(failure));
    outcome.message = text;
    end(std::move(outcome));
}

void OwnRequest::end(SeenOutcome outcome) {
    world_.note("own", std::to_string(script_.id) + " ends: " +
                           (outcome.isError ? "error " + std::to_string(outcome.failure)
                                            : "status " + std::to_string(outcome.status)));
    if (world_.baton.isSimulator() != is_posting_) complain("its end is told on another thread than it should be");
    if (seen().runs.empty()) return complain("an end is told of what has never run");
    ++seen().runs.back().finals;
    outcome.at = world_.now();
    outcome.body = std::exchange(body_, {});
    has_headers_ = false;
    const Moment kind = outcome.isError ? Moment::error : Moment::response;
    if (seen().runs.size() == 1) seen().outcomes.push_back(std::move(outcome));
    listener_(kind);
    listener_(Moment::outcome);
}

}  // namespace kel::http::simulation
