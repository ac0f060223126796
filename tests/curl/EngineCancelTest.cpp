// SPDX-License-Identifier: MIT
#include "curl/MomentTest.h"
#include "fixture/LogCapture.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EngineCancelMomentTest : public MomentTest {};

INSTANTIATE_TEST_SUITE_P(Cancelled, EngineCancelMomentTest,
                         inEveryWay({Moment::queued, Moment::connecting, Moment::sending, Moment::headers_awaited,
                                     Moment::inside_headers, Moment::inside_body, Moment::paused}),
                         nameOf);

TEST_P(EngineCancelMomentTest, CancelledRequestHearsNothingMoreAndIsFreed) {
    RecordingRequestPtr request = reach();
    const std::weak_ptr<RecordingRequest> watch = request;
    if (moment() == Moment::queued) {
        request->tryToCancelRequest();
        letGo();
        drain();
        EXPECT_THAT(request->hooks.events(), IsEmpty());
        EXPECT_EQ(server.connectionCount(), 0U);
    } else {
        std::size_t heard = 0;
        {
            // The count is taken right before the transfer is dropped: no pass of the loop lies between.
            const EngineHold hold(engine());
            engine().queueRequest([&heard, made = request.get()] { heard = made->hooks.count(); });
            request->tryToCancelRequest();
        }
        drain();
        letGo();
        if (moment() != Moment::connecting) server.awaitPeerClosed(1);
        drain();
        EXPECT_EQ(request->hooks.count(), heard);
        EXPECT_THAT(request->outcome.events(), IsEmpty());
    }
    request.reset();
    EXPECT_TRUE(watch.expired());
}

class EngineCancelTest : public EngineTest {};

// Its transfer has all it waits for, and the engine has yet to see that.
TEST_F(EngineCancelTest, RunBegunWhileTheCancelledOneCompletesHasTheOnlyOutcome) {
    for (const Handler handler : {Handler::inline_call, Handler::posting}) {
        startEngine(handler);
        server.enqueue(Reply(200).body("first "));
        server.enqueue(Reply(200).body("second"));
        const auto request = this->request(get());
        request->onData = [&](std::string_view data) {
            if (data == "first ") {
                request->tryToCancelRequest();
                request->runRequest();
            }
            return 0;
        };
        request->runRequest();
        request->outcome.await("end");
        drain();
        EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
        EXPECT_EQ(request->body(), "first second");
        request->onData = nullptr;
        stopEngine();
    }
}

TEST_F(EngineCancelTest, CancelAfterTheCompletionWasPostedCallsNothing) {
    startEngine(Handler::posting);
    server.enqueue(Reply(200).body("x"));
    executor.hold();
    const auto request = run(get());
    executor.awaitPosted(1);
    const std::size_t heard = request->hooks.count();
    request->tryToCancelRequest();
    executor.release();
    drain();
    EXPECT_EQ(request->hooks.count(), heard);
    EXPECT_EQ(request->getResponseCode(), 4294967295U);
}

TEST_F(EngineCancelTest, CancelAfterAFailedSetUpWasPostedCallsNothing) {
    startEngine(Handler::posting);
    executor.hold();
    RequestConfig config = get();
    config.headers[""] = "nameless";
    const auto request = run(config);
    executor.awaitPosted(1);
    request->tryToCancelRequest();
    executor.release();
    drain();
    EXPECT_THAT(request->hooks.events(), IsEmpty());
}

TEST_F(EngineCancelTest, CancelBeforeTheSetUpSavesTheSetUp) {
    const LogCapture log("HttpClient", 1);
    startEngine();
    {
        const EngineHold hold(engine());
        run(get())->tryToCancelRequest();
    }
    drain();
    EXPECT_FALSE(log.contains("HTTP: Outgoing"));
}

TEST_F(EngineCancelTest, CancelTwiceAndAfterTheEndDoesNothing) {
    startEngine();
    server.enqueue(Reply(200));
    const auto request = run(get());
    request->outcome.await("end");
    request->tryToCancelRequest();
    request->tryToCancelRequest();
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
}

TEST_F(EngineCancelTest, CancelledRequestMayRunAgain) {
    startEngine();
    const auto request = run(get());
    server.awaitRequests(1);
    request->tryToCancelRequest();
    request->runRequest();
    server.awaitPeerClosed(1);
    server.awaitRequests(2);
    // The first reply is for the request that has gone.
    server.enqueue(Reply(200));
    server.enqueue(Reply(200));
    request->outcome.await("end");
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
}

TEST_F(EngineCancelTest, CancelOfOneLeavesTheOthersAlone) {
    startEngine();
    const auto cancelled = run(get("/cancelled"));
    server.awaitRequests(1);
    const auto other = run(get("/other"));
    server.awaitRequests(2);
    cancelled->tryToCancelRequest();
    server.awaitPeerClosed(1);
    server.onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.target); });
    other->outcome.await("end");
    EXPECT_EQ(other->body(), "/other");
    EXPECT_THAT(cancelled->outcome.events(), IsEmpty());
}

TEST_F(EngineCancelTest, FinalHookMayCancelItsOwnRequest) {
    class SelfCancelling : public RecordingRequest {
     public:
        using RecordingRequest::RecordingRequest;
        void notifyFailure(Failure failure, std::string_view text) override {
            tryToCancelRequest();
            RecordingRequest::notifyFailure(failure, text);
        }
    };
    startEngine();
    server.enqueue(Reply(500));
    const auto request = std::make_shared<SelfCancelling>(get());
    request->runRequest();
    request->outcome.await("failure 6: HTTP code=500");
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 6: HTTP code=500"));
}

TEST_F(EngineCancelTest, DataHookMayCancelItsOwnRequest) {
    startEngine();
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    const auto request = this->request(get());
    request->onData = [made = request.get()](std::string_view) {
        made->tryToCancelRequest();
        return 0;
    };
    request->runRequest();
    server.awaitPeerClosed(1);
    drain();
    EXPECT_THAT(request->outcome.events(), IsEmpty());
}

TEST_F(EngineCancelTest, RacingCancelLeavesAtMostOneOutcome) {
    startEngine(Handler::posting);
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("x"); });
    std::vector<RecordingRequestPtr> requests;
    for (int i = 0; i < 300; ++i) {
        requests.push_back(run(get()));
        if (i % 3 == 0) onEngineThread([] {});
        if (i % 2 == 0) requests[static_cast<std::size_t>(i) / 2]->tryToCancelRequest();
    }
    for (std::size_t i = 150; i < 300; ++i) requests[i]->outcome.await("end");
    drain();
    for (const RecordingRequestPtr& request : requests) EXPECT_LE(request->outcome.count(), 1U);
}

}  // namespace
}  // namespace kel::http::test
