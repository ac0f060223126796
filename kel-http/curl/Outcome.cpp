// SPDX-License-Identifier: MIT
#include "kel-http/curl/Outcome.h"

#include <exception>
#include <utility>

#include "kel-http/curl/RequestImpl.h"
#include "kel-http/protocol.h"

namespace kel::http {

Outcome::Outcome(RequestPtr of_request, std::uint32_t of_run) : request(std::move(of_request)), run(of_run) {}

std::function<void()> Outcome::closureFor(const RequestPtr& request, std::uint32_t run) {
    return Outcome(request, run);
}

Outcome& Outcome::in(std::function<void()>& closure) {
    return *closure.target<Outcome>();
}

void Outcome::setFault(const char* text) noexcept {
    try {
        fault = text;
    } catch (const std::exception&) {
        fault = out_of_memory;  // short enough for the string itself
    }
}

bool Outcome::hasBegun() const {
    return stateOf(*request).toldRun == run;
}

// A run that was cancelled, and perhaps followed by another one, while its outcome was on its way tells nothing.
void Outcome::operator()() const {
    Request::Impl& state = stateOf(*request);
    if (state.isCancelled(run) || !state.beginOutcome(run)) return;
    if (fault.empty()) return Engine::runCallbackHandlerInFsmContext(request, result, responseCode);

    request->setResponseCode(protocol::valid_status(responseCode) ? static_cast<unsigned int>(responseCode) : 0U);
    request->notifyFailure(Failure::Other, fault);
}

}  // namespace kel::http
