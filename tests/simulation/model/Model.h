// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Script.h"
#include "model/Reading.h"
#include "world/Time.h"

namespace kel::http::simulation {

// What a request may come to, told from its script alone: docs/contract.md once more, in other words, as a machine reads
// them. A request goes from stage to stage: each is one request of HTTP's, to be answered by a server of the script.

// The numbers of ClientFailure that this model knows.
namespace end {
constexpr int invalid_url = 0;
constexpr int resolve_failed = 1;
constexpr int other = 2;
constexpr int timeout = 3;
constexpr int connect_failed = 5;
constexpr int write_failed = 6;
}  // namespace end

struct Stage {
    std::int64_t host = 0;
    std::int64_t exchange = 0;
    std::string method;
    bool hasBody = false;
    // Redirects that have been followed up to here.
    std::int64_t followed = 0;
    // It tells who it is.
    bool isLoggedIn = false;
    // A redirect has led there.
    bool hasMoved = false;
    // Nothing can be sent there any more.
    bool isTooLate = false;
};

// How a server was asked.
struct Asking {
    // Of the answer, counted from 0 for each exchange.
    std::size_t number = 0;
    // Its connection has served before.
    bool isUsed = false;
    Time at = Time(-1);
    // Request line and headers; empty: as the script lets one expect.
    std::string head;
};

// What the answer to a stage may lead to.
struct Consequence {
    bool response = false;      // it is handed over
    std::vector<int> failures;  // of these kinds
    std::string message;        // which tells this, if anything
    std::optional<Stage> next;  // the road goes on there
    bool repeats = false;       // the same again, over another connection
    bool lasts = false;         // nothing comes any more: only a limit or its caller ends it
    Reading reading;            // what has come
    bool isCut = false;         // less than there should be
    std::size_t size = 0;       // bytes of the answer, if nothing cuts it
    Time first = Time(0);       // between request and consequence, at least
};

// When so many bytes of an answer have come.
Time timeOf(const ReplyScript& reply, std::size_t bytes);

// Whether its body is a file, which does not go on its way a second time; what it fails with instead.
bool sendsOnce(const RequestScript& request);
constexpr std::string_view cannot_repeat = "necessary data rewind wasn't possible";

class Model {
 public:
    explicit Model(const Script& script) : script_(script) {}

    // Whether all that could happen to it is told here; otherwise nothing is said about it.
    bool knows(const RequestScript& request) const;

    Stage first(const RequestScript& request) const;
    // How it may end without having reached the server of the stage; `now`: when it was on its way there at the latest.
    std::vector<int> failuresBefore(const Stage& stage, Time begun) const;
    Consequence consequence(const RequestScript& request, const Stage& stage, const Asking& asking) const;
    // The longest that it may take from the beginning of a stage to the outcome, or from having been asked with the answer
    // of that number; without pauses. Never: as long as it likes.
    Time longest(const RequestScript& request, const Stage& stage) const;
    Time longestFrom(const RequestScript& request, const Stage& stage, const Asking& asking) const;
    // The shortest way to a server whose connection has to be made.
    Time shortestReach(std::int64_t host, bool knows_name) const;

 private:
    bool isCalm(Time at) const { return script_.world.calmAt > 0 && at >= Time(script_.world.calmAt); }
    bool isRefused(const RequestScript& request, const Stage& stage, const Asking& asking,
                   const ReplyScript& reply) const;
    bool follows(const RequestScript& request, const Reading& reading) const;
    static bool tooMuch(const RequestScript& request, const ReplyScript& reply, Consequence& result);
    Stage after(const RequestScript& request, const Stage& stage, const ReplyScript& reply) const;
    static void judgeBreak(const RequestScript& request, const ReplyScript& reply, bool is_used, Consequence& result);
    static void judgePage(const ReplyScript& reply, Consequence& result);
    void judgeRefusal(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                      Consequence& result) const;
    static void goOn(const RequestScript& request, Stage next, Consequence& result);
    void judgeRedirect(const RequestScript& request, const Stage& stage, const ReplyScript& reply,
                       Consequence& result) const;
    static void judgeBody(const RequestScript& request, const ReplyScript& reply, Consequence& result);
    Time longestReach(const Stage& stage) const;
    Time longestAnswer(const RequestScript& request, const Stage& stage, const Asking& asking) const;

    const Script& script_;
};

}  // namespace kel::http::simulation
