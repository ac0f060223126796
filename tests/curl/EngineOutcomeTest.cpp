// SPDX-License-Identifier: MIT
// What becomes of a transfer that has ended, on its own: no engine, nobody to talk to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "fixture/RecordingRequest.h"
#include "fixture/TestClock.h"
#include "kel-http/curl/EngineCompletion.h"

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
        CURL* const easy = transfers.enter(request)->easy;
        transfers.begin(easy);
        return easy;
    }

    logging::Logger& log = *logging::getLogger("HttpClient", 0);
    RecordingRequestPtr request = std::make_shared<RecordingRequest>();
    std::vector<std::function<void()>> handedOver;
    std::vector<RequestPtr> again;
    EngineTransfers transfers;
    EngineProxy proxy{&TestClock::now, log};
    EngineCompletion completion{transfers, proxy,
                                [this](const std::function<void()>& closure) { handedOver.push_back(closure); },
                                [this](const RequestPtr& next) { again.push_back(next); }, log};
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

TEST_F(EngineOutcomeTest, ATransferThatIsNotInProgressIsRefused) {
    int unknown = 0;
    EXPECT_THROW(completion.completeTask(&unknown, CURLE_OK), std::out_of_range);
    completion.processCompletedTasks();
    EXPECT_THAT(handedOver, IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
