// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "checks/CheckConnections.h"
#include "checks/CheckPlain.h"
#include "checks/CheckProgress.h"
#include "checks/Checks.h"
#include "parties/Bytes.h"
#include "parties/Remains.h"

// Checks of requests that belong together, with worlds that nobody has lived.
namespace kel::http::simulation {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Check = void (*)(const Script&, const Observation&, std::vector<std::string>&);

std::vector<std::string> said(Check check, const std::string& script, const Observation& seen) {
    std::vector<std::string> faults;
    check(parse(script), seen, faults);
    return faults;
}

Arrival arrival(std::int64_t request, std::int64_t connection, Time at, const std::string& fields = {}) {
    Arrival one;
    one.at = at;
    one.request = request;
    one.exchange = request * 10;
    one.connection = connection;
    one.head = "GET / HTTP/1.1\r\n" + fields + "\r\n";
    return one;
}

SeenOutcome response(Time at, const std::string& body, int status = 200) {
    SeenOutcome outcome;
    outcome.at = at;
    outcome.status = status;
    outcome.body = body;
    return outcome;
}

SeenOutcome failure(int kind) {
    SeenOutcome outcome;
    outcome.isError = true;
    outcome.failure = kind;
    outcome.message = "why";
    return outcome;
}

Observation seenOf(const SeenOutcome& outcome) {
    Observation seen;
    seen.requests[0].started = true;
    seen.requests[0].outcomes.push_back(outcome);
    return seen;
}

SeenDeed deed(Deed what, Time at) {
    SeenDeed done;
    done.at = at;
    done.deed = what;
    done.isRunning = true;
    return done;
}

// Request 0, whose answer of 10 bytes is sent a millisecond after its arrival at 1 ms, and told then.
Observation answeredAt(Time told) {
    Observation seen = seenOf(response(told, answerBody(0, 0, 10)));
    seen.arrivals = {arrival(0, 0, Time(1000))};
    return seen;
}

constexpr const char* ten_bytes = "reply body=10\nrequest\n";

TEST(KinChecksTest, WhoBeginsAfreshComesOverAnUnusedConnection) {
    Observation seen;
    seen.arrivals = {arrival(0, 0, Time(1)), arrival(1, 1, Time(2)), arrival(1, 0, Time(3))};
    const std::string script = "request\nrequest id=1 freshState=1\n";
    EXPECT_THAT(said(checkConnections, script, seen), IsEmpty());
    seen.arrivals[1].connection = 0;
    EXPECT_THAT(said(checkConnections, script, seen), ElementsAre(HasSubstr("others have used")));
}

TEST(KinChecksTest, WhoGoesOnAsksForWhatIsBehindItsFile) {
    Observation seen = seenOf(response(Time(9), {}, 206));
    const std::string script = "reply body=10\nrequest download=3 present=5\n";
    seen.arrivals = {arrival(0, 0, Time(1), "Range: bytes=5-\r\n")};
    EXPECT_THAT(said(checkConnections, script, seen), IsEmpty());
    seen.arrivals = {arrival(0, 0, Time(1), "Range: bytes=4-\r\n")};
    EXPECT_THAT(said(checkConnections, script, seen), ElementsAre(HasSubstr("'bytes=4-'")));
    EXPECT_THAT(said(checkConnections, "reply body=10\nrequest\n", seen), ElementsAre(HasSubstr("instead of ''")));
}

TEST(KinChecksTest, WhatNothingStandsInTheWayOfDoesNotFail) {
    const Observation seen = seenOf(failure(2));
    EXPECT_THAT(said(checkPlain, ten_bytes, seen), ElementsAre(HasSubstr("fails with 2, 'why'")));
    EXPECT_THAT(said(checkPlain, "reply body=10 cut=close cutAt=50\nrequest\n", seen), IsEmpty());
    EXPECT_THAT(said(checkPlain, "reply body=10\nrequest\ntrouble kind=reset\n", seen), IsEmpty());
    EXPECT_THAT(said(checkPlain, "host idle=5\nreply body=10\nrequest\n", seen), IsEmpty());
}

TEST(KinChecksTest, AnAnswerIsToldAsSoonAsItsLastByteHasCome) {
    EXPECT_THAT(said(checkPlain, ten_bytes, answeredAt(Time(52'000))), IsEmpty());
    EXPECT_THAT(said(checkPlain, ten_bytes, answeredAt(Time(52'001))), ElementsAre(HasSubstr("behind the last byte")));
}

TEST(KinChecksTest, AnAnswerIsToldAsItIs) {
    Observation seen = seenOf(response(Time(2000), "another", 404));
    seen.arrivals = {arrival(0, 0, Time(1000))};
    EXPECT_THAT(said(checkPlain, ten_bytes, seen),
                ElementsAre(HasSubstr("status 404 instead of 200"), HasSubstr("another body")));
}

TEST(KinChecksTest, ARequestReachesItsServerAsSoonAsItCan) {
    Observation seen = answeredAt(Time(62'000));
    seen.arrivals[0].at = Time(60'000);
    EXPECT_THAT(said(checkPlain, ten_bytes, seen), ElementsAre(HasSubstr("later than it could")));
}

TEST(KinChecksTest, NoBodyComesDuringAPause) {
    Observation seen = answeredAt(Time(5000));
    seen.deeds = {deed(Deed::pause, Time(1500))};
    EXPECT_THAT(said(checkPlain, ten_bytes, seen), ElementsAre(HasSubstr("though it is paused")));
    EXPECT_THAT(said(checkPlain, "reply body=10\nrequest handle=1\n", seen), IsEmpty());
    seen.deeds.push_back(deed(Deed::resume, Time(4000)));
    EXPECT_THAT(said(checkPlain, ten_bytes, seen), IsEmpty());
    seen.deeds = {deed(Deed::pause, Time(2000))};  // together with the answer: nobody knows which came first
    EXPECT_THAT(said(checkPlain, ten_bytes, seen), IsEmpty());
}

TEST(KinChecksTest, BrokenConnectionsAreNoReasonNeverToEnd) {
    const std::string script = "reply body=10\nrequest\ntrouble kind=reset\n";
    Observation seen;
    seen.requests[0].started = true;
    seen.requests[0].givenUp = true;
    EXPECT_THAT(said(checkPlain, script, seen), ElementsAre(HasSubstr("never ended")));
    EXPECT_THAT(said(checkPlain, "host connect=silent\n" + script, seen), IsEmpty());
    seen.deeds = {deed(Deed::pause, Time(1500))};
    EXPECT_THAT(said(checkPlain, script, seen), IsEmpty());
}

TEST(KinChecksTest, ProgressGoesNoFurtherThanItsTotal) {
    Observation seen = answeredAt(Time(2000));
    seen.requests[0].reports = {{0, 3}, {10, 4}, {10, 10}};
    const std::string script = "reply body=10\nrequest download=1\n";
    EXPECT_THAT(said(checkProgress, script, seen), IsEmpty());
    seen.requests[0].reports[1] = {10, 11};
    EXPECT_THAT(said(checkProgress, script, seen), ElementsAre(HasSubstr("it hears of 11 of 10 bytes")));
}

TEST(KinChecksTest, TheLastReportTellsWhatCame) {
    Observation seen = answeredAt(Time(2000));
    const std::string script = "reply body=10\nrequest download=1\n";
    EXPECT_THAT(said(checkProgress, script, seen), ElementsAre(HasSubstr("no progress")));
    seen.requests[0].reports = {{10, 4}};
    EXPECT_THAT(said(checkProgress, script, seen), ElementsAre(HasSubstr("the last that it hears is 4 of 10")));
    EXPECT_THAT(said(checkProgress, "reply body=10 framing=chunked\nrequest download=1\n", seen), IsEmpty());
}

TEST(KinChecksTest, AResumedDownloadMayTellOfAnUnknownSize) {
    Observation seen = seenOf(failure(2));
    const std::string script = "reply body=10\nrequest download=3 present=5\n";
    seen.requests[0].reports = {{5, 8}};
    EXPECT_THAT(said(checkProgress, script, seen), IsEmpty());
    seen.requests[0].reports = {{6, 8}};
    EXPECT_THAT(said(checkProgress, script, seen), ElementsAre(HasSubstr("it hears of 8 of 6 bytes")));
}

TEST(KinChecksTest, AResumedDownloadIsTheOldPartAndTheRest) {
    const std::string body = answerBody(0, 0, 10);
    const std::string script = "reply body=10 range=right\nrequest download=3 present=5\n";
    Observation seen = seenOf(response(Time(2000), body, 206));
    seen.requests[0].reports = {{5, 5}};
    seen.arrivals = {arrival(0, 0, Time(1000))};
    EXPECT_THAT(said(checkProgress, script, seen), IsEmpty());
    seen.requests[0].outcomes[0].body = body.substr(0, 5) + body.substr(4, 5);
    EXPECT_THAT(said(checkProgress, script, seen), ElementsAre(HasSubstr("not the old part and the rest")));
}

TEST(KinChecksTest, WhatNobodyNeedsIsNotThereAnyMore) {
    Observation seen;
    seen.survivors = {"client 1"};
    EXPECT_THAT(faults(Script(), seen), Contains(HasSubstr("client 1 is still there")));
}

TEST(RemainsTest, WhatIsLetGoOfIsNoRemainder) {
    Remains remains;
    auto kept = std::make_shared<int>(1);
    remains.watch("kept", kept);
    remains.watch("gone", std::make_shared<int>(2));
    EXPECT_THAT(remains.survivors("/no such folder/"), ElementsAre("kept"));
}

}  // namespace
}  // namespace kel::http::simulation
