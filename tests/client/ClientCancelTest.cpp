// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "fixture/ClientTest.h"
#include "fixture/EngineHold.h"
#include "fixture/LogCapture.h"
#include "support/Files.h"
#include "support/SilentListener.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Each moment with completions that run on the engine thread and with those that are posted to the executor.
class ClientCancelTest : public ClientTest, public testing::WithParamInterface<Handler> {
 protected:
    ClientCancelTest() : ClientTest(GetParam()) {}

    // The tag of what the engine posts first when a transfer is complete: the outcome, or the completion itself.
    static int completionTag() { return GetParam() == Handler::posting ? 0 : 4035; }

    void expectSilence(Client::RequestId id) {
        drain();
        EXPECT_TRUE(recorder.heardNothingOf(id));
    }
};

TEST_P(ClientCancelTest, WhileItIsQueued) {
    Client::RequestId id = NoRequestId;
    const std::weak_ptr<Client> observer = client;
    {
        const EngineHold hold(engine());
        id = start(get());
        cancel(id);
        executor.run([this] { client.reset(); });
    }
    expectSilence(id);
    EXPECT_TRUE(observer.expired());
    EXPECT_EQ(server.requests().size(), 0U);
}

TEST_P(ClientCancelTest, WhileItConnects) {
    const SilentListener nobody(SilentListener::Connects::Hang);
    RequestConfig config;
    config.url = nobody.url();
    const Client::RequestId id = start(config);
    drain();
    cancel(id);
    expectSilence(id);
}

TEST_P(ClientCancelTest, WhileTheHeadersAreAwaited) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
}

TEST_P(ClientCancelTest, InsideTheHeaders) {
    server.enqueue(Reply(200).stallInsideHeaders());
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
}

TEST_P(ClientCancelTest, InsideTheBody) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = start(get());
    server.awaitBodyBytesSent(4);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
}

TEST_P(ClientCancelTest, WhileItIsPaused) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = start(get());
    pause(id);
    server.awaitBodyBytesSent(4);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
}

TEST_P(ClientCancelTest, InsideAnUpload) {
    server.enqueue(Reply(200).stallBeforeRequestBody());
    RequestConfig config = get();
    config.method = Method::PUT;
    config.body.assign(16 << 20, 'x');
    const Client::RequestId id = start(config);
    server.awaitHeaderBlocks(1);
    cancel(id);
    expectSilence(id);
}

TEST_P(ClientCancelTest, WhenTheOutcomeIsPosted) {
    server.enqueue(Reply(200).body("text"));
    Client::RequestId id = NoRequestId;
    executor.run([&] {
        id = client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(completionTag());
        client->cancel_request(id);
    });
    expectSilence(id);
}

TEST_P(ClientCancelTest, WhenAnErrorIsPosted) {
    server.enqueue(Reply(200).closeBeforeHeaders());
    Client::RequestId id = NoRequestId;
    executor.run([&] {
        id = client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(GetParam() == Handler::posting ? 0 : 4036);
        client->cancel_request(id);
    });
    expectSilence(id);
}

TEST_P(ClientCancelTest, BehindTheOutcomeItIsIgnored) {
    server.enqueue(Reply(200));
    const Client::RequestId id = start(get());
    recorder.await(id);
    const LogCapture log("TestClient", 9);
    cancel(id);
    drain();
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(recorder.outcomes().size(), 1U);
}

TEST_P(ClientCancelTest, TheOtherRequestsGoOn) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).stallBeforeHeaders(); });
    const Client::RequestId first = start(get());
    const Client::RequestId second = start(get());
    const Client::RequestId third = start(get());
    server.awaitRequests(3);
    cancel(second);
    server.release(3);
    EXPECT_EQ(recorder.await(first).response->status, 200);
    EXPECT_EQ(recorder.await(third).response->status, 200);
    expectSilence(second);
}

// --- downloads ---

TEST_P(ClientCancelTest, ADownloadLeavesNoPartialFile) {
    const TemporaryDirectory directory;
    writeWholeFile(directory.path("f"), "old");
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = startDownload(get(), directory.path("f"));
    recorder.awaitProgress(id);
    EXPECT_EQ(directory.names().size(), 2U);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
    EXPECT_THAT(directory.names(), ElementsAre("f"));
    EXPECT_EQ(readWholeFile(directory.path("f")), "old");
}

TEST_P(ClientCancelTest, ADownloadKeepsItsPartialFileOnDemand) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    RequestConfig config = get();
    config.keep_partial_download = true;
    const Client::RequestId id = startDownload(config, directory.path("f"));
    recorder.awaitProgress(id);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
    ASSERT_THAT(directory.names(), ElementsAre(testing::MatchesRegex("f\\.downloading-[0-9a-f]{8}")));
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[0])), "half");
}

TEST_P(ClientCancelTest, AResumedDownloadKeepsItsTarget) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    RequestConfig config = get();
    config.resume = true;
    const Client::RequestId id = startDownload(config, directory.path("f"));
    recorder.awaitProgress(id);
    cancel(id);
    server.awaitPeerClosed(1);
    expectSilence(id);
    EXPECT_THAT(directory.names(), ElementsAre("f"));
    EXPECT_EQ(readWholeFile(directory.path("f")), "half");
}

INSTANTIATE_TEST_SUITE_P(Completions, ClientCancelTest, testing::Values(Handler::inline_call, Handler::posting),
                         [](const auto& handler) {
                             return handler.param == Handler::posting ? "Posted" : "OnTheEngineThread";
                         });

class ClientCancelPostedDownloadTest : public ClientTest {
 protected:
    ClientCancelPostedDownloadTest() : ClientTest(Handler::posting) {}
};

TEST_F(ClientCancelPostedDownloadTest, ACompletionOnItsWayReplacesNoFile) {
    const TemporaryDirectory directory;
    writeWholeFile(directory.path("f"), "old");
    server.enqueue(Reply(200).body("new"));
    executor.run([&] {
        const Client::RequestId id = client->start_download(get(), directory.path("f"), {}, recorder.onResponse(),
                                                            recorder.onError(), recorder.onProgress());
        executor.awaitTag(0);
        client->cancel_request(id);
    });
    drain();
    EXPECT_THAT(recorder.outcomes(), IsEmpty());
    EXPECT_EQ(readWholeFile(directory.path("f")), "old");
    EXPECT_THAT(directory.names(), ElementsAre("f"));
}

}  // namespace
}  // namespace kel::http::test
