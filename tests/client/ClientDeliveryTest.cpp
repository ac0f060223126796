// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <atomic>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "support/ClosedPort.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class ClientDeliveryTest : public ClientTest {
 protected:
    Client::ErrorCallback unexpectedError() {
        return [](Client::RequestId, const ErrorData& data) { ADD_FAILURE() << data.message; };
    }

    EventLog events;
};

// --- when and where ---

TEST_F(ClientDeliveryTest, CallbacksRunOnTheExecutorsThread) {
    const TemporaryDirectory directory;
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("text"); });
    const ClosedPort nobody;
    RequestConfig refused;
    refused.url = nobody.url();
    EXPECT_EQ(fetch(get()).thread, executor.threadId());
    EXPECT_EQ(fetch(refused).thread, executor.threadId());

    std::atomic<ko::thread_id> progress_thread{ko::invalid_thread_id};
    executor.run([&] {
        client->start_download(
            get(), directory.path("f"), {}, [this](Client::RequestId, const ResponseData&) { events.add("response"); },
            unexpectedError(),
            [&](Client::RequestId, const ProgressData&) { progress_thread = ko::this_thread::get_id(); });
    });
    events.await("response");
    EXPECT_EQ(progress_thread, executor.threadId());
}

TEST_F(ClientDeliveryTest, AResponseIsALaterTask) {
    server.enqueue(Reply(200));
    executor.run([this] {
        client->start_request(
            get(), {}, [this](Client::RequestId, const ResponseData&) { events.add("response"); }, unexpectedError());
        executor.awaitTag(4035);
        EXPECT_THAT(events.events(), IsEmpty());
    });
    events.await("response");
}

TEST_F(ClientDeliveryTest, EvenAnErrorKnownAtOnceIsALaterTask) {
    RequestConfig config;
    config.url = "unknown://host/";
    executor.run([&] {
        client->start_request(
            config, {}, [](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
            [this](Client::RequestId, const ErrorData&) { events.add("error"); });
        executor.awaitTag(4036);
        EXPECT_THAT(events.events(), IsEmpty());
    });
    events.await("error");
}

TEST_F(ClientDeliveryTest, AResponseIsTheOnlyTaskThatIsPosted) {
    server.enqueue(Reply(200).body("text"));
    fetch(get());
    drain();
    EXPECT_THAT(executor.tags(), ElementsAre(4035));
}

TEST_F(ClientDeliveryTest, ADownloadIsPostedOnceWithItsTagBehindProgress) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("text"));
    recorder.await(startDownload(get(), directory.path("f")));
    drain();
    const std::vector<int> tags = executor.tags();
    ASSERT_GT(tags.size(), 1U);
    EXPECT_EQ(tags.back(), 4035);
    EXPECT_THAT(std::vector<int>(tags.begin(), tags.end() - 1), Each(4037));
}

TEST_F(ClientDeliveryTest, AnErrorIsPostedOnceWithItsTag) {
    server.enqueue(Reply(200).closeBeforeHeaders());
    fetch(get());
    drain();
    EXPECT_THAT(executor.tags(), ElementsAre(4036));
}

TEST_F(ClientDeliveryTest, TheConfigurationMayChangeRightAfterTheStart) {
    server.enqueue(Reply(200));
    executor.run([this] {
        RequestConfig config = get("/first");
        client->start_request(config, {}, recorder.onResponse(), recorder.onError());
        config.url = "http://other/";
    });
    recorder.awaitCount(1);
    EXPECT_EQ(server.requests().at(0).target, "/first");
}

// --- many ---

TEST_F(ClientDeliveryTest, TwoHundredRequestsEndInOneOutcomeEach) {
    constexpr std::size_t Count = 200;
    server.onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.target); });
    std::vector<Client::RequestId> ids;
    executor.run([&] {
        for (std::size_t n = 0; n < Count; ++n) {
            ids.push_back(
                client->start_request(get('/' + std::to_string(n)), {}, recorder.onResponse(), recorder.onError()));
        }
    });
    recorder.awaitCount(Count);
    drain();
    ASSERT_EQ(recorder.outcomes().size(), Count);
    for (std::size_t n = 0; n < Count; ++n) {
        const Recorder::Outcome outcome = recorder.await(ids[n]);
        ASSERT_TRUE(outcome.response.has_value());
        EXPECT_EQ(outcome.response->body, '/' + std::to_string(n));
    }
}

TEST_F(ClientDeliveryTest, TwoClientsShareAnExecutorWithoutMixingTheirIds) {
    server.onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.target); });
    Recorder other_recorder;
    executor.run([&] {
        const auto other = createClient(executor, *logging::getLogger("OtherClient", 0));
        EXPECT_EQ(client->start_request(get("/one"), {}, recorder.onResponse(), recorder.onError()), 1U);
        EXPECT_EQ(other->start_request(get("/other"), {}, other_recorder.onResponse(), other_recorder.onError()), 1U);
    });
    EXPECT_EQ(recorder.await(1).response->body, "/one");
    EXPECT_EQ(other_recorder.await(1).response->body, "/other");
}

TEST_F(ClientDeliveryTest, CancellingOneClientsIdLeavesTheOthersAlone) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).stallBeforeHeaders(); });
    Recorder other_recorder;
    std::shared_ptr<Client> other;
    executor.run([&] {
        other = createClient(executor, *logging::getLogger("OtherClient", 0));
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        other->start_request(get(), {}, other_recorder.onResponse(), other_recorder.onError());
    });
    server.awaitRequests(2);
    cancel(1);
    server.release(2);
    EXPECT_EQ(other_recorder.await(1).response->status, 200);
    executor.run([&] { other.reset(); });
    drain();
    EXPECT_TRUE(recorder.heardNothingOf(1));
}

TEST_F(ClientDeliveryTest, EachClientIsCalledBackOnItsOwnExecutor) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    Recorder other_recorder;
    RecordingExecutor other_executor;
    other_executor.run([&] {
        createClient(other_executor, *logging::getLogger("OtherClient", 0))
            ->start_request(get(), {}, other_recorder.onResponse(), other_recorder.onError());
    });
    EXPECT_EQ(fetch(get()).thread, executor.threadId());
    EXPECT_EQ(other_recorder.await(1).thread, other_executor.threadId());
    // The other executor must not be used any more when it ends.
    stopEngine();
}

// --- what a callback may do ---

TEST_F(ClientDeliveryTest, ACallbackMayStartAnotherRequest) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    executor.run([this] {
        client->start_request(
            get(), {},
            [this](Client::RequestId, const ResponseData&) {
                client->start_request(get("/second"), {}, recorder.onResponse(), recorder.onError());
            },
            unexpectedError());
    });
    EXPECT_EQ(recorder.await(2).response->status, 200);
}

TEST_F(ClientDeliveryTest, AnErrorCallbackMayTryAgain) {
    server.enqueue(Reply(200).closeBeforeHeaders());
    server.enqueue(Reply(200));
    executor.run([this] {
        client->start_request(
            get(), {}, [](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
            [this](Client::RequestId, const ErrorData&) {
                client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
            });
    });
    EXPECT_EQ(recorder.await(2).response->status, 200);
}

TEST_F(ClientDeliveryTest, ACallbackMayCancelItsOwnIdWhichHasEnded) {
    server.enqueue(Reply(200));
    const LogCapture log("TestClient", 9);
    executor.run([this] {
        client->start_request(
            get(), {},
            [this](Client::RequestId id, const ResponseData&) {
                client->cancel_request(id);
                events.add("response");
            },
            unexpectedError());
    });
    events.await("response");
    EXPECT_EQ(log.count(" Cancelling"), 0U);
}

TEST_F(ClientDeliveryTest, ACallbackMayCancelAnotherRequestWhoseResponseIsPosted) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    executor.run([this] {
        client->start_request(
            get(), {},
            [this](Client::RequestId, const ResponseData&) {
                client->cancel_request(2);
                events.add("response");
            },
            unexpectedError());
        executor.awaitTag(4035);
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(4035, 2);
    });
    events.await("response");
    drain();
    EXPECT_TRUE(recorder.heardNothingOf(2));
}

TEST_F(ClientDeliveryTest, ProgressMayCancelItsOwnRequest) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    executor.run([&] {
        client->start_download(
            get(), directory.path("f"), {}, [](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
            unexpectedError(),
            [this](Client::RequestId id, const ProgressData&) {
                client->cancel_request(id);
                events.add("progress");
            });
    });
    events.await("progress");
    server.awaitPeerClosed(1);
    drain();
    EXPECT_EQ(events.count(), 1U);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ClientDeliveryTest, WhatTheCallbacksHoldGoesAfterThem) {
    server.enqueue(Reply(200));
    const auto held = std::make_shared<int>();
    executor.run([&] {
        client->start_request(
            get(), {},
            [this, held](Client::RequestId, const ResponseData&) {
                EXPECT_EQ(held.use_count(), 2);
                events.add("response");
            },
            unexpectedError());
    });
    events.await("response");
    executor.run([] {});
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ClientDeliveryTest, WhatTheOtherCallbackHoldsIsGoneInTheOneThatIsCalled) {
    server.enqueue(Reply(200).closeBeforeHeaders());
    server.enqueue(Reply(200));
    std::weak_ptr<int> other;
    const auto hold = [&other] {
        const auto held = std::make_shared<int>();
        other = held;
        return held;
    };
    const auto ended = [&](const std::string& event) {
        EXPECT_TRUE(other.expired());
        events.add(event);
    };
    executor.run([&] {
        client->start_request(
            get(), {}, [held = hold()](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
            [ended](Client::RequestId, const ErrorData&) { ended("error"); });
    });
    events.await("error");
    executor.run([&] {
        client->start_request(
            get(), {}, [ended](Client::RequestId, const ResponseData&) { ended("response"); },
            [held = hold()](Client::RequestId, const ErrorData&) { ADD_FAILURE(); });
    });
    events.await("response");
}

// --- the client's life ---

TEST_F(ClientDeliveryTest, ADroppedClientDeliversWhatIsRunningAndEnds) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).stallBeforeHeaders(); });
    const std::weak_ptr<Client> observer = client;
    executor.run([this] {
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        client.reset();
    });
    server.awaitRequests(2);
    EXPECT_FALSE(observer.expired());
    server.release(2);
    EXPECT_EQ(recorder.await(1).response->status, 200);
    EXPECT_EQ(recorder.await(2).response->status, 200);
    drain();
    EXPECT_TRUE(observer.expired());
}

TEST_F(ClientDeliveryTest, ProgressOnItsWayKeepsTheClient) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const std::weak_ptr<Client> observer = client;
    executor.run([&] {
        const Client::RequestId id = client->start_download(
            get(), directory.path("f"), {}, [](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
            unexpectedError(), [](Client::RequestId, const ProgressData&) { ADD_FAILURE(); });
        executor.awaitTag(4037);
        client->cancel_request(id);
        client.reset();
        // The engine has let go of the request by then.
        onEngineThread([] {});
        EXPECT_FALSE(observer.expired());
    });
    executor.run([] {});
    EXPECT_TRUE(observer.expired());
}

TEST_F(ClientDeliveryTest, ACallbackMayDropItsClient) {
    server.enqueue(Reply(200));
    const std::weak_ptr<Client> observer = client;
    executor.run([this] {
        client->start_request(
            get(), {},
            [this](Client::RequestId, const ResponseData&) {
                client.reset();
                events.add("response");
            },
            unexpectedError());
    });
    events.await("response");
    drain();
    EXPECT_TRUE(observer.expired());
}

TEST_F(ClientDeliveryTest, AnErrorCallbackMayDropItsClient) {
    server.enqueue(Reply(200).closeBeforeHeaders());
    executor.run([this] {
        client->start_request(
            get(), {}, [](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
            [this](Client::RequestId, const ErrorData&) {
                client.reset();
                events.add("error");
            });
    });
    events.await("error");
}

// --- completions that run on the executor as well ---

class ClientPostingEngineTest : public ClientTest {
 protected:
    ClientPostingEngineTest() : ClientTest(Handler::posting) {}
};

TEST_F(ClientPostingEngineTest, OutcomesArriveAllTheSame) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("text"));
    server.enqueue(Reply(404).body("page"));
    server.enqueue(Reply(200).closeInsideBody());
    server.enqueue(Reply(200).body("file"));
    EXPECT_EQ(fetch(get()).response->body, "text");
    EXPECT_EQ(fetch(get()).response->status, 404);
    EXPECT_EQ(fetch(get()).error->failure, ClientFailure::Other);
    const Client::RequestId id = startDownload(get(), directory.path("f"));
    EXPECT_EQ(recorder.await(id).response->status, 200);
    EXPECT_THAT(directory.names(), ElementsAre("f"));
    EXPECT_FALSE(recorder.progress(id).empty());
    drain();
    EXPECT_EQ(recorder.outcomes().size(), 4U);
}

}  // namespace
}  // namespace kel::http::test
