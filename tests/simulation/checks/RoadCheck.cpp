// SPDX-License-Identifier: MIT
#include "checks/RoadCheck.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "model/Model.h"
#include "parties/Credentials.h"

namespace kel::http::simulation {
namespace {

constexpr Time margin = std::chrono::milliseconds(50);
// In which limits are counted; one that has begun may count as a whole.
constexpr Time millisecond = std::chrono::milliseconds(1);
constexpr std::int64_t most_repetitions = 5;

std::string text(const Stage& stage) {
    return stage.method + " of " + std::to_string(stage.exchange) + " at host " + std::to_string(stage.host);
}

std::string text(Time time) {
    return std::to_string(time.count()) + " us";
}

// One request's way through the stages that its arrivals show.
class Walk {
 public:
    Walk(const Script& script, const Observation& seen, const RequestScript& request)
        : model_(script),
          seen_(seen),
          request_(request),
          told_(seen.requests.at(request.id)),
          stage_(model_.first(request)),
          since_(told_.startedAt),
          latest_(model_.longest(request, stage_)) {}

    std::vector<std::string> faults() {
        for (std::size_t index = 0; index < seen_.arrivals.size() && faults_.empty(); ++index) {
            if (seen_.arrivals[index].request == request_.id) arrive(index);
        }
        if (!faults_.empty() || hasLostEngine()) return faults_;
        checkTime();
        if (!told_.outcomes.empty()) checkOutcome(told_.outcomes.front());
        return faults_;
    }

 private:
    void fail(const std::string& fault) { faults_.push_back(fault); }

    bool isUsed(std::size_t index) const {
        const auto end = seen_.arrivals.begin() + static_cast<std::ptrdiff_t>(index);
        return std::any_of(seen_.arrivals.begin(), end,
                           [&](const Arrival& other) { return other.connection == seen_.arrivals[index].connection; });
    }

    void arrive(std::size_t index) {
        const Arrival& arrival = seen_.arrivals[index];
        if (asked_ && !move(arrival)) return;
        checkArrival(arrival);
        const Asking asking{numbers_[arrival.exchange]++, isUsed(index), arrival.at - seen_.begin, arrival.head};
        if (!asking.isUsed) checkReach(arrival);
        asked_ = model_.consequence(request_, stage_, asking);
        since_ = arrival.at;
        latest_ = model_.longestFrom(request_, stage_, asking);
        if (!asked_->repeats) collectHeaders();
    }

    // On to where this arrival shows it to be.
    bool move(const Arrival& arrival) {
        if (arrival.at < since_ + asked_->first && !asked_->lasts) {
            fail("asks again before it has been answered");
            return false;
        }
        if (asked_->next) {
            stage_ = *asked_->next;
            if (stage_.isTooLate) fail("is sent once more though its body is a file");
            repetitions_ = 0;
        } else if (!asked_->repeats) {
            fail("asks again, for " + std::to_string(arrival.exchange) + ", though it has its answer");
        } else if (++repetitions_ > most_repetitions) {
            fail("is repeated too often");
        }
        return faults_.empty();
    }

    void checkArrival(const Arrival& arrival) {
        const Stage here = {arrival.host, arrival.exchange, arrival.method};
        if (arrival.host != stage_.host || arrival.exchange != stage_.exchange || arrival.method != stage_.method)
            fail(text(here) + " instead of " + text(stage_));
        checkBody(arrival);
        checkLogin(arrival);
        const bool has_ended = !told_.outcomes.empty() && arrival.at > told_.outcomes.front().at;
        if (has_ended || (told_.cancelled && arrival.at > told_.cancelledAt)) fail("asks after its end");
    }

    // How long a form is depends on what parts it.
    void checkBody(const Arrival& arrival) {
        const bool is_form = request_.form > 0 && stage_.hasBody && arrival.bodySize > 0;
        const std::int64_t wanted = is_form ? arrival.bodySize : stage_.hasBody ? request_.body : 0;
        if (!arrival.bodyIsRight || arrival.bodySize != wanted)
            fail(text(stage_) + " brought " + std::to_string(arrival.bodySize) + " bytes instead of its " +
                 std::to_string(wanted));
    }

    void checkLogin(const Arrival& arrival) {
        const bool tells = !headerIn(arrival.head, "Authorization").empty();
        if (tells && arrival.host != request_.host) fail("tells another host than its own who it is");
        if (stage_.isLoggedIn && !tells && arrival.host == request_.host)
            fail("does not tell who it is though it was asked");
        if (tells) stage_.isLoggedIn = true;
    }

    void checkReach(const Arrival& arrival) {
        const auto before = asked_ ? since_ + asked_->first : told_.startedAt;
        const bool knows_name = std::any_of(seen_.arrivals.begin(), seen_.arrivals.end(), [&](const Arrival& other) {
            return other.host == arrival.host && other.at < arrival.at + margin && &other != &arrival;
        });
        if (!asked_ && arrival.at < before + model_.shortestReach(arrival.host, knows_name || mayShareName()))
            fail("has reached its server sooner than it could");
    }

    // Somebody else may have looked the same name up.
    bool mayShareName() const { return seen_.requests.size() > 1; }

    // Of lines with the same name the first one stays.
    void collectHeaders() {
        for (const auto& [name, value] : asked_->reading.headers) headers_.emplace(name, value);
    }

    // What has been paused and not resumed lasts.
    Time pauses() const {
        Time sum(0);
        Time since = Never;
        for (const SeenDeed& one : seen_.deeds) {
            if (one.request != request_.id) continue;
            if (one.deed == Deed::pause && since == Never) since = one.at;
            if (one.deed == Deed::resume && since != Never) sum += one.at - std::exchange(since, Never);
        }
        return since == Never ? sum : Never;
    }

    // The latest end, with pauses and with the time that dead connections took.
    Time latestEnd() const {
        const Time paused = pauses();
        if (latest_ == Never || paused == Never || request_.speedLimit > 0 || request_.own != 0) return Never;
        return since_ + latest_ + paused + margin;
    }

    // With the engine goes whatever has not ended.
    bool hasLostEngine() const {
        return seen_.engineEnd != Never && (told_.outcomes.empty() || told_.outcomes.front().at >= seen_.engineEnd);
    }

    void checkTime() {
        const Time latest = latestEnd();
        const bool ended = !told_.outcomes.empty();
        const Time end = ended ? told_.outcomes.front().at : told_.cancelled ? told_.cancelledAt : seen_.end;
        if (latest != Never && end > latest) {
            fail((ended ? "took until " : "had not ended at ") + text(end - told_.startedAt) +
                 ", but its world is done with it after " + text(latest - told_.startedAt));
        }
        const Time limit = std::chrono::milliseconds(request_.timeout);
        if (!ended && request_.timeout > 0 && end > told_.startedAt + limit + margin)
            fail("had not ended when its limit was over");
    }

    void checkOutcome(const SeenOutcome& outcome) {
        if (outcome.isError && outcome.failure == end::timeout) return checkTimeout(outcome);
        if (!asked_) return checkUnasked(outcome);
        if (!outcome.isError) return checkResponse(outcome);
        if (asked_->next && isAllowed(outcome, model_.failuresBefore(*asked_->next, since_ - seen_.begin))) return;
        if (isAllowed(outcome, asked_->failures)) {
            // libcurl keeps the text of the first thing that went wrong, even of a connection that it has made good.
            if (isFirst() && outcome.message.find(asked_->message) == std::string::npos)
                fail("'" + outcome.message + "' instead of '" + asked_->message + "'");
            if (outcome.at < since_ + Time(0)) fail("failed before it was asked");
            return;
        }
        if (asked_->repeats && isAllowed(outcome, model_.failuresBefore(stage_, since_ - seen_.begin))) return;
        if (asked_->repeats && repetitions_ == most_repetitions && diedTooOften(outcome)) return;
        checkUnheard(outcome);
    }

    // No answer has come to it before.
    bool isFirst() const {
        return repetitions_ == 0 && std::count_if(seen_.arrivals.begin(), seen_.arrivals.end(),
                                                  [&](const Arrival& one) { return one.request == request_.id; }) == 1;
    }

    static bool isAllowed(const SeenOutcome& outcome, const std::vector<int>& failures) {
        return std::find(failures.begin(), failures.end(), outcome.failure) != failures.end();
    }

    static bool diedTooOften(const SeenOutcome& outcome) {
        return outcome.failure == end::other && outcome.message.find("Connection died") != std::string::npos;
    }

    // It came to its end without any server's having read it.
    void checkUnasked(const SeenOutcome& outcome) {
        const auto failures = model_.failuresBefore(stage_, told_.startedAt - seen_.begin);
        if (outcome.isError && isAllowed(outcome, failures)) return;
        checkUnheard(outcome);
    }

    // Kept connections that die under their requests, of which no server has read one as a whole.
    void checkUnheard(const SeenOutcome& outcome) {
        const auto unheard = std::count_if(seen_.unheard.begin(), seen_.unheard.end(),
                                           [&](const Unheard& one) { return one.at >= told_.startedAt; });
        if (outcome.isError && diedTooOften(outcome) && unheard > most_repetitions - repetitions_) return;
        if (sendsOnce(request_) && unheard > 0 && outcome.message == cannot_repeat) return;
        fail(outcome.isError ? "failed with " + std::to_string(outcome.failure) + ", '" + outcome.message + "'"
                             : "has a response that nobody sent");
    }

    void checkTimeout(const SeenOutcome& outcome) {
        const Time limit = told_.startedAt + std::chrono::milliseconds(request_.timeout);
        if (request_.timeout <= 0) return fail("timed out without a limit");
        if (outcome.at <= limit - millisecond) fail("timed out " + text(limit - outcome.at) + " before its limit");
        if (latestEnd() < limit) fail("timed out at its limit, though its world was done with it long before");
    }

    void checkResponse(const SeenOutcome& outcome) {
        if (!asked_->response && request_.own != 0) return;
        if (!asked_->response) return fail("has a response instead of an error");
        const Reading& reading = asked_->reading;
        if (outcome.at < since_ + asked_->first) fail("has its response before it was sent");
        if (outcome.status != reading.status)
            fail("has status " + std::to_string(outcome.status) + " instead of " + std::to_string(reading.status));
        if (outcome.body != reading.body)
            fail("has " + std::to_string(outcome.body.size()) + " bytes that are not the " +
                 std::to_string(reading.body.size()) + " of its answer");
        if (request_.own == 0 && outcome.headers != headers_) fail("has " + difference(outcome.headers));
    }

    std::string difference(const std::map<std::string, std::string>& given) const {
        for (const auto& [name, value] : headers_) {
            const auto found = given.find(name);
            if (found == given.end()) return "no header '" + name + "'";
            if (found->second != value) return "'" + name + ": " + found->second + "' instead of '" + value + "'";
        }
        for (const auto& [name, value] : given) {
            if (headers_.count(name) == 0) return "a header '" + name + "' that nobody sent";
        }
        return "other headers";
    }

    const Model model_;
    const Observation& seen_;
    const RequestScript& request_;
    const SeenRequest& told_;
    Stage stage_;
    // Where it is: on its way to the stage since then, or asked there then.
    std::optional<Consequence> asked_;
    Time since_;
    Time latest_;
    std::int64_t repetitions_ = 0;
    std::map<std::int64_t, std::size_t> numbers_;
    std::map<std::string, std::string> headers_;
    std::vector<std::string> faults_;
};

}  // namespace

std::vector<std::string> faultsOnRoad(const Script& script, const Observation& seen, const RequestScript& request) {
    return Walk(script, seen, request).faults();
}

}  // namespace kel::http::simulation
