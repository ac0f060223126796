// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineTransfers.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "fixture/RecordingRequest.h"

namespace kel::http::test {
namespace {

class EngineTransfersTest : public ::testing::Test {
 protected:
    ~EngineTransfersTest() override { transfers.close(); }

    static RecordingRequestPtr request() { return std::make_shared<RecordingRequest>(); }

    EngineTransfers transfers;
};

TEST_F(EngineTransfersTest, AnEnteredTransferIsFoundByHandleAndByRequest) {
    const auto wanted = request();
    transfers.enter(request());
    const TaskPtr task = transfers.enter(wanted);
    EXPECT_EQ(transfers.find(task->easy), task.get());
    EXPECT_EQ(&transfers.at(task->easy), task.get());
    EXPECT_EQ(transfers.getActiveTask(wanted), task);
    EXPECT_EQ(task->request, wanted);
}

TEST_F(EngineTransfersTest, AnUnknownHandleOrRequestIsNotFound) {
    int unknown = 0;
    transfers.enter(request());
    EXPECT_EQ(transfers.find(&unknown), nullptr);
    EXPECT_EQ(transfers.getActiveTask(request()), nullptr);
    EXPECT_THROW(transfers.at(&unknown), std::out_of_range);
    EXPECT_THROW(transfers.take(&unknown), std::out_of_range);
}

TEST_F(EngineTransfersTest, ATransferThatIsTakenIsNoLongerInProgress) {
    const auto owner = request();
    void* const easy = transfers.enter(owner)->easy;
    const TaskPtr task = transfers.take(easy);
    EXPECT_EQ(task->request, owner);
    EXPECT_EQ(transfers.find(easy), nullptr);
    EXPECT_THROW(transfers.take(easy), std::out_of_range);
}

TEST_F(EngineTransfersTest, WhatIsForgottenOrRemovedLetsItsRequestGo) {
    const auto forgotten = request();
    const auto removed = request();
    transfers.forget(transfers.enter(forgotten)->easy);
    transfers.enter(removed);
    transfers.begin(transfers.getActiveTask(removed)->easy);
    transfers.remove(*transfers.getActiveTask(removed));
    EXPECT_EQ(forgotten.use_count(), 1);
    EXPECT_EQ(removed.use_count(), 1);
    EXPECT_EQ(removed->hooks.count(), 0U);
}

TEST_F(EngineTransfersTest, ATransferWithoutAConnectionHasNothingToResume) {
    const TaskPtr task = transfers.enter(request());
    EngineTransfers::pause(*task);
    EXPECT_EQ(EngineTransfers::resume(*task), CURLE_OK);
}

TEST_F(EngineTransfersTest, NothingHasCompletedBeforeItIsDriven) {
    EXPECT_EQ(transfers.findCompletedMsg(), nullptr);
    transfers.begin(transfers.enter(request())->easy);
    EXPECT_EQ(transfers.findCompletedMsg(), nullptr);
}

TEST(EngineTransfersEndTest, ClosingFreesWhatIsLeftWithoutAWord) {
    const auto owner = std::make_shared<RecordingRequest>();
    EngineTransfers transfers;
    transfers.begin(transfers.enter(owner)->easy);
    transfers.close();
    EXPECT_EQ(owner.use_count(), 1);
    EXPECT_EQ(owner->hooks.count(), 0U);
}

}  // namespace
}  // namespace kel::http::test
