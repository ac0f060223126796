// SPDX-License-Identifier: MIT
#include "checks/CheckCallers.h"

#include <algorithm>
#include <array>

#include "model/Murky.h"

namespace kel::http::simulation {
namespace {

using Faults = std::vector<std::string>;

std::string nameOf(std::int64_t request) {
    return "request " + std::to_string(request) + ": ";
}

// What had been handed over when the engine ended may still be told, which takes no time.
void checkSilence(std::int64_t id, const SeenRequest& seen, Time engine_end, Faults& faults) {
    if (seen.lateProgress != 0) faults.push_back(nameOf(id) + "it hears of progress when it should not any more");
    for (const SeenOutcome& outcome : seen.outcomes) {
        if (!seen.started) faults.push_back(nameOf(id) + "it ends without a beginning");
        if (engine_end != Never && outcome.at > engine_end) {
            faults.push_back(nameOf(id) + "its outcome comes though there is no engine any more");
        }
        if (seen.startedAt > engine_end) faults.push_back(nameOf(id) + "it has an outcome without an engine");
    }
}

void checkEnd(const RequestScript& request, const SeenRequest& seen, Faults& faults) {
    if (seen.givenUp && request.timeout > 0) faults.push_back(nameOf(request.id) + "it has never ended");
}

void checkRuns(std::int64_t id, const SeenRequest& seen, Faults& faults) {
    for (std::size_t number = 0; number < seen.runs.size(); ++number) {
        const SeenRun& run = seen.runs[number];
        const bool is_wrong = run.cancelled ? run.finals != 0 : run.orphaned ? run.finals > 1 : run.finals != 1;
        if (!is_wrong) continue;
        faults.push_back(nameOf(id) + "run " + std::to_string(number) + " has ended " + std::to_string(run.finals) +
                         " times" + (run.cancelled ? " though it was cancelled" : ""));
    }
}

// What was not to be sent, and what can not be.
void checkRefusal(const RequestScript& request, const SeenRequest& seen, Faults& faults) {
    if (!isRefused(request)) return;
    for (const SeenOutcome& outcome : seen.outcomes) {
        if (!outcome.isError) faults.push_back(nameOf(request.id) + "it has a response though it can not be sent");
    }
}

bool tellsPassword(const std::string& text) {
    static constexpr std::array<const char*, 3> passwords = {"pass word", "s@cret", "s%40cret"};
    return std::any_of(passwords.begin(), passwords.end(),
                       [&text](const char* password) { return text.find(password) != std::string::npos; });
}

void checkTelling(const RequestScript& request, const SeenRequest& seen, Faults& faults) {
    for (const SeenOutcome& outcome : seen.outcomes) {
        if (tellsPassword(outcome.message)) faults.push_back(nameOf(request.id) + "its error tells the password");
        if (outcome.isError || request.own != 0) continue;
        if ((outcome.timing >= 0) != (request.timing != 0))
            faults.push_back(nameOf(request.id) + "timing is told unasked, or is not");
        if (outcome.timing > (outcome.at - seen.startedAt).count())
            faults.push_back(nameOf(request.id) + "it took less time than it tells");
    }
}

bool hasField(const Arrival& arrival, const std::string& line) {
    return arrival.head.find("\r\n" + line) != std::string::npos;
}

void checkArrival(const RequestScript& request, const Arrival& arrival, Faults& faults) {
    if (isRefused(request)) faults.push_back(nameOf(request.id) + "it has reached a server");
    if (request.headers == 1 && !hasField(arrival, "X-Own: own-" + std::to_string(request.id) + "\r\n"))
        faults.push_back(nameOf(request.id) + "its own header is missing");
    if (request.headers == 2 && hasField(arrival, "Accept:"))
        faults.push_back(nameOf(request.id) + "it sends a header that it should not");
    if (request.login == Login::none && hasField(arrival, "Authorization:"))
        faults.push_back(nameOf(request.id) + "it sends credentials that it does not have");
    if (request.cookies == 0 && hasField(arrival, "Cookie:"))
        faults.push_back(nameOf(request.id) + "it sends cookies that it does not want");
}

void checkRequest(const RequestScript& request, const SeenRequest& seen, Faults& faults) {
    checkEnd(request, seen, faults);
    checkRuns(request.id, seen, faults);
    checkRefusal(request, seen, faults);
    checkTelling(request, seen, faults);
}

// Credentials wait until somebody asks for them.
void checkFirst(const Script& script, const Observation& seen, Faults& faults) {
    for (const RequestScript& request : script.requests) {
        const auto first = std::find_if(seen.arrivals.begin(), seen.arrivals.end(),
                                        [&request](const Arrival& arrival) { return arrival.request == request.id; });
        if (first != seen.arrivals.end() && hasField(*first, "Authorization:"))
            faults.push_back(nameOf(request.id) + "it sends credentials unasked");
    }
}

}  // namespace

void checkCallers(const Script& script, const Observation& seen, Faults& faults) {
    faults.insert(faults.end(), seen.violations.begin(), seen.violations.end());
    if (seen.tasksQueued != seen.tasksRun) {
        faults.push_back(std::to_string(seen.tasksRun) + " tasks have run of " + std::to_string(seen.tasksQueued));
    }
    for (const auto& [id, request] : seen.requests) {
        checkSilence(id, request, seen.engineEnd, faults);
        if (const RequestScript* const asked = script.request(id)) checkRequest(*asked, request, faults);
    }
    for (const Arrival& arrival : seen.arrivals) {
        if (seen.engineEnd != Never && arrival.at > seen.engineEnd)
            faults.push_back(nameOf(arrival.request) + "it is sent though there is no engine any more");
        if (const RequestScript* const asked = script.request(arrival.request)) checkArrival(*asked, arrival, faults);
    }
    checkFirst(script, seen, faults);
}

}  // namespace kel::http::simulation
