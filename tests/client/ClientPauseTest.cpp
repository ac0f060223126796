// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "fixture/ClientTest.h"
#include "fixture/EngineHold.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/SilentListener.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

// Bytes of every value, no two rows alike.
std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t n = 0; n < size; ++n) bytes[n] = static_cast<char>((n * 7 + n / 251) & 0xFFU);
    return bytes;
}

class ClientPauseTest : public ClientTest, public testing::WithParamInterface<Handler> {
 protected:
    ClientPauseTest() : ClientTest(GetParam()) {}

    void expectSilence(Client::RequestId id) {
        drain();
        EXPECT_TRUE(recorder.heardNothingOf(id));
    }

    void expectWholeBody(Client::RequestId id) {
        const Recorder::Outcome outcome = recorder.await(id);
        ASSERT_TRUE(outcome.response.has_value()) << outcome.error->message;
        EXPECT_EQ(outcome.response->status, 200);
        EXPECT_TRUE(outcome.response->body == body);
    }

    const std::string body = pattern(300000);
    const std::string first_half = body.substr(0, 150000);
    const std::string second_half = body.substr(150000);
};

TEST_P(ClientPauseTest, WhileItIsQueued) {
    server.enqueue(Reply(200).body(body));
    Client::RequestId id = NoRequestId;
    {
        const EngineHold hold(engine());
        id = start(get());
        pause(id);
    }
    server.awaitRequests(1);
    expectSilence(id);
    resume(id);
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, AndResumedWhileItIsQueued) {
    server.enqueue(Reply(200).body(body));
    Client::RequestId id = NoRequestId;
    {
        const EngineHold hold(engine());
        id = start(get());
        pause(id);
        resume(id);
    }
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, WhileItConnects) {
    const SilentListener nobody(SilentListener::Connects::Hang);
    RequestConfig config;
    config.url = nobody.url();
    const Client::RequestId id = start(config);
    drain();
    pause(id);
    drain();
    resume(id);
    expectSilence(id);
    cancel(id);
}

TEST_P(ClientPauseTest, WhileTheHeadersAreAwaited) {
    server.enqueue(Reply(200).stallBeforeHeaders().body(body));
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    pause(id);
    server.release();
    expectSilence(id);
    resume(id);
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, InsideTheHeaders) {
    server.enqueue(Reply(200).stallInsideHeaders().body(body));
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    pause(id);
    server.release();
    expectSilence(id);
    resume(id);
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, InsideTheBody) {
    server.enqueue(Reply(200).body(first_half).stallBeforeEnd(second_half));
    const Client::RequestId id = start(get());
    server.awaitBodyBytesSent(first_half.size());
    pause(id);
    server.release();
    expectSilence(id);
    resume(id);
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, WhenTheOutcomeIsPosted) {
    server.enqueue(Reply(200).body(body));
    Client::RequestId id = NoRequestId;
    executor.run([&] {
        id = client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(GetParam() == Handler::posting ? 0 : 4035);
        client->pause_request(id);
    });
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, PausingAndResumingTwiceIsAsGoodAsOnce) {
    server.enqueue(Reply(200).body(first_half).stallBeforeEnd(second_half));
    const Client::RequestId id = start(get());
    server.awaitBodyBytesSent(first_half.size());
    pause(id);
    pause(id);
    server.release();
    expectSilence(id);
    resume(id);
    resume(id);
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, ResumingWhatIsNotPausedDoesNothing) {
    server.enqueue(Reply(200).body(first_half).stallBeforeEnd(second_half));
    const Client::RequestId id = start(get());
    resume(id);
    server.awaitBodyBytesSent(first_half.size());
    resume(id);
    expectSilence(id);
    server.release();
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, ThePlainNamesDoTheSame) {
    server.enqueue(Reply(200).body(first_half).stallBeforeEnd(second_half));
    const Client::RequestId id = start(get());
    server.awaitBodyBytesSent(first_half.size());
    executor.run([&] { client->pause(id); });
    server.release();
    expectSilence(id);
    executor.run([&] { client->resume(id); });
    expectWholeBody(id);
}

TEST_P(ClientPauseTest, TheTimeOutRunsOnMeanwhile) {
    server.enqueue(Reply(200).body(first_half).stallBeforeEnd(second_half));
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(200);
    const Client::RequestId id = start(config);
    pause(id);
    EXPECT_EQ(recorder.await(id).error->failure, ClientFailure::Timeout);
}

TEST_P(ClientPauseTest, APausedDownloadMissesNoByte) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body(first_half).stallBeforeEnd(second_half));
    const Client::RequestId id = startDownload(get(), directory.path("f"));
    recorder.awaitProgress(id);
    pause(id);
    server.release();
    expectSilence(id);
    resume(id);
    EXPECT_EQ(recorder.await(id).response->status, 200);
    EXPECT_TRUE(readWholeFile(directory.path("f")) == body);
}

TEST_P(ClientPauseTest, APausedUploadIsSentWhole) {
    server.enqueue(Reply(200).stallBeforeRequestBody());
    RequestConfig config = get();
    config.method = Method::PUT;
    config.body = pattern(8 << 20);
    const Client::RequestId id = start(config);
    server.awaitHeaderBlocks(1);
    pause(id);
    server.release();
    expectSilence(id);
    resume(id);
    EXPECT_EQ(recorder.await(id).response->status, 200);
    EXPECT_TRUE(server.requests().at(0).body == config.body);
}

TEST_P(ClientPauseTest, AHundredPausesDuringADownloadLoseNothing) {
    const TemporaryDirectory directory;
    const std::string bytes = pattern(5 << 20);
    NginxServer nginx;
    nginx.writeFile("f", bytes);
    RequestConfig config;
    config.url = nginx.url("/f");
    const Client::RequestId id = startDownload(config, directory.path("f"));
    for (int times = 0; times < 100; ++times) {
        pause(id);
        resume(id);
    }
    EXPECT_EQ(recorder.await(id).response->status, 200);
    EXPECT_TRUE(readWholeFile(directory.path("f")) == bytes);
}

INSTANTIATE_TEST_SUITE_P(Completions, ClientPauseTest, testing::Values(Handler::inline_call, Handler::posting),
                         [](const auto& handler) {
                             return handler.param == Handler::posting ? "Posted" : "OnTheEngineThread";
                         });

}  // namespace
}  // namespace kel::http::test
