// SPDX-License-Identifier: MIT
// What becomes of a transfer that has ended, on its own: no engine, nobody to talk to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "fixture/RecordingRequest.h"
#include "fixture/TestClock.h"
#include "kel-http/curl/EngineCompletion.h"
#include "kel-http/curl/Outcome.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class EngineOutcomeTest : public ::testing::Test {
 protected:
    ~EngineOutcomeTest() override { transfers.close(); }

    CURL* begin() {
        const TaskPtr task = transfers.enter(request);
        task->outcome = Outcome::closureFor(request, 1);
        transfers.begin(task->easy);
        return task->easy;
    }

    logging::Logger& log = *logging::getLogger("HttpClient", 0);
    RecordingRequestPtr request = std::make_shared<RecordingRequest>();
    std::vector<std::function<void()>> handedOver;
    std::vector<RequestPtr> again;
    EngineTransfers transfers;
    EngineProxy proxy{&TestClock::now, log};
    EngineTls tls{log};
    EngineCompletion completion{transfers,
                                proxy,
                                tls,
                                [this](const std::function<void()>& closure) { take(closure); },
                                [this](const RequestPtr& next, std::function<void()>&) { retry(next); },
                                log};

    void take(const std::function<void()>& closure) {
        handedOver.push_back(closure);
        if (handlerFailures-- > 0) throw std::bad_alloc();
    }
    int handlerFailures = 0;

    void retry(const RequestPtr& next) {
        if (retryFails) throw std::bad_alloc();
        again.push_back(next);
    }
    bool retryFails = false;
};

TEST_F(EngineOutcomeTest, AFailureIsHandedOverAndItsTransferIsGone) {
    CURL* const easy = begin();
    EXPECT_EQ(completion.completeTask(easy, CURLE_COULDNT_CONNECT), EngineCompletion::Completion::final);
    EXPECT_EQ(transfers.find(easy), nullptr);
    ASSERT_THAT(handedOver, SizeIs(1));
    EXPECT_EQ(request->outcome.count(), 0U);  // not before the closure runs
    handedOver.front()();
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure ")));
    EXPECT_THAT(again, IsEmpty());
}

TEST_F(EngineOutcomeTest, AnAttemptWithoutAnAnswerGoesOnWithTheNextProxy) {
    proxy.setProxyConfig({EngineProxy::Mode::PACUrl, "", "", ""});
    request->remainingProxies = {"A", "B"};
    CURL* const easy = begin();
    proxy.addProxyConfig(easy, *request);
    EXPECT_EQ(completion.completeTask(easy, CURLE_COULDNT_CONNECT), EngineCompletion::Completion::retry);
    EXPECT_THAT(again, ElementsAre(request));
    EXPECT_THAT(handedOver, IsEmpty());
}

TEST_F(EngineOutcomeTest, WithoutMemoryForAnotherAttemptTheFailureIsTheOutcome) {
    proxy.setProxyConfig({EngineProxy::Mode::PACUrl, "", "", ""});
    request->remainingProxies = {"A", "B"};
    retryFails = true;
    CURL* const easy = begin();
    proxy.addProxyConfig(easy, *request);
    EXPECT_EQ(completion.completeTask(easy, CURLE_COULDNT_CONNECT), EngineCompletion::Completion::final);
    ASSERT_THAT(handedOver, SizeIs(1));
    handedOver.front()();
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 5: ")));
}

TEST_F(EngineOutcomeTest, WhatTheLibraryHasEndedIsToldInItsOwnWords) {
    CURL* const easy = begin();
    transfers.at(easy).fault.note(TransferFault::Side::peer, "too much");
    EXPECT_EQ(completion.completeTask(easy, CURLE_WRITE_ERROR), EngineCompletion::Completion::final);
    handedOver.front()();
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 2: too much"));
}

// A proxy is not to blame for a file that ends early.
TEST_F(EngineOutcomeTest, WhatIsOurOwnFaultIsNotTriedAgain) {
    proxy.setProxyConfig({EngineProxy::Mode::PACUrl, "", "", ""});
    request->remainingProxies = {"A", "B"};
    CURL* const easy = begin();
    proxy.addProxyConfig(easy, *request);
    transfers.at(easy).fault.note(TransferFault::Side::own, "a hook");
    EXPECT_EQ(completion.completeTask(easy, CURLE_ABORTED_BY_CALLBACK), EngineCompletion::Completion::final);
    EXPECT_THAT(again, IsEmpty());
}

TEST_F(EngineOutcomeTest, AHandlerWithoutMemoryIsAskedAgainAndTheOutcomeIsToldOnce) {
    handlerFailures = 2;
    CURL* const easy = begin();
    completion.completeTask(easy, CURLE_COULDNT_CONNECT);
    ASSERT_THAT(handedOver, SizeIs(3));  // this handler kept the closure each time
    for (const auto& closure : handedOver) closure();
    EXPECT_THAT(request->outcome.events(), SizeIs(1));
}

TEST_F(EngineOutcomeTest, ATransferThatIsNotInProgressIsRefused) {
    int unknown = 0;
    EXPECT_THROW(completion.completeTask(&unknown, CURLE_OK), std::out_of_range);
    completion.processCompletedTasks();
    EXPECT_THAT(handedOver, IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
