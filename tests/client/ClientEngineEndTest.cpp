// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "fixture/ClientTest.h"
#include "support/SilentListener.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using testing::IsEmpty;

// The engine goes first: its transfers end without a word, and cancelling frees what waited for them.
class ClientEngineEndTest : public ClientTest {
 protected:
    void expectNothingButFreedByCancelling(Client::RequestId id) {
        stopEngine();
        executor.run([] {});
        EXPECT_TRUE(recorder.heardNothingOf(id));
        const std::weak_ptr<Client> observer = client;
        executor.run([&] {
            client->cancel_request(id);
            client.reset();
        });
        executor.run([] {});
        EXPECT_TRUE(recorder.heardNothingOf(id));
        EXPECT_TRUE(observer.expired());
    }
};

TEST_F(ClientEngineEndTest, WhileARequestIsQueued) {
    engine().requestTermination();
    expectNothingButFreedByCancelling(start(get()));
}

TEST_F(ClientEngineEndTest, WhileARequestConnects) {
    const SilentListener nobody(SilentListener::Connects::Hang);
    RequestConfig config;
    config.url = nobody.url();
    const Client::RequestId id = start(config);
    drain();
    expectNothingButFreedByCancelling(id);
}

TEST_F(ClientEngineEndTest, WhileHeadersAreAwaited) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    expectNothingButFreedByCancelling(id);
}

TEST_F(ClientEngineEndTest, InsideABody) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = start(get());
    server.awaitBodyBytesSent(4);
    expectNothingButFreedByCancelling(id);
}

TEST_F(ClientEngineEndTest, WhileARequestIsPaused) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = start(get());
    pause(id);
    server.awaitBodyBytesSent(4);
    expectNothingButFreedByCancelling(id);
}

TEST_F(ClientEngineEndTest, InsideADownloadWhosePartialFileGoesToo) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = startDownload(get(), directory.path("f"));
    recorder.awaitProgress(id);
    expectNothingButFreedByCancelling(id);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ClientEngineEndTest, WhileACancellationIsQueued) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    engine().requestTermination();
    cancel(id);
    expectNothingButFreedByCancelling(id);
}

TEST_F(ClientEngineEndTest, APostedResponseIsStillDelivered) {
    server.enqueue(Reply(200).body("text"));
    executor.run([this] {
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(4035);
        stopEngine();
    });
    EXPECT_EQ(recorder.await(1).response->body, "text");
}

TEST_F(ClientEngineEndTest, TheNextEngineServesTheSameClient) {
    server.enqueue(Reply(200));
    server.enqueue(Reply(200).stallBeforeHeaders());
    server.enqueue(Reply(200).body("text"));
    EXPECT_EQ(fetch(get()).response->status, 200);
    const Client::RequestId lost = start(get());
    server.awaitRequests(2);
    stopEngine();
    startEngine();
    EXPECT_EQ(fetch(get()).response->body, "text");
    cancel(lost);
    drain();
    EXPECT_TRUE(recorder.heardNothingOf(lost));
}

class ClientPostedCompletionTest : public ClientTest {
 protected:
    ClientPostedCompletionTest() : ClientTest(Handler::posting) {}
};

TEST_F(ClientPostedCompletionTest, ACompletionMayOutliveItsEngine) {
    server.enqueue(Reply(200).body("text"));
    executor.run([this] {
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(0);
        stopEngine();
    });
    EXPECT_EQ(recorder.await(1).response->body, "text");
}

}  // namespace
}  // namespace kel::http::test
