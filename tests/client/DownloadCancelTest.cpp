// SPDX-License-Identifier: MIT
#include <algorithm>
#include <tuple>

#include "client/DownloadTest.h"
#include "fixture/EngineHold.h"
#include "support/SilentListener.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

enum class Moment { queued, connecting, headers_awaited, inside_headers, inside_body, paused, end };

std::string nameOf(Moment moment) {
    switch (moment) {
        case Moment::queued:
            return "Queued";
        case Moment::connecting:
            return "Connecting";
        case Moment::headers_awaited:
            return "HeadersAwaited";
        case Moment::inside_headers:
            return "InsideHeaders";
        case Moment::inside_body:
            return "InsideBody";
        case Moment::paused:
            return "Paused";
        case Moment::end:
            return "End";
    }
    return {};
}

// An old file at the target, and a download of "new bytes" that is given up on its way there.
class DownloadCancelTest : public DownloadTest, public testing::WithParamInterface<std::tuple<Moment, Handler, bool>> {
 protected:
    DownloadCancelTest() : DownloadTest(handler()) { writeWholeFile(target, "old"); }

    static Moment moment() { return std::get<0>(GetParam()); }
    static Handler handler() { return std::get<1>(GetParam()); }
    static bool keeps() { return std::get<2>(GetParam()); }

    RequestConfig config() const { return keeps() ? keeping() : get(); }

    Client::RequestId startAndCancel() {
        switch (moment()) {
            case Moment::queued:
                return cancelQueued();
            case Moment::connecting:
                return cancelConnecting();
            case Moment::headers_awaited:
                return cancelInside(Reply(200).stallBeforeHeaders().body("new bytes"));
            case Moment::inside_headers:
                return cancelInside(Reply(200).stallInsideHeaders().body("new bytes"));
            case Moment::inside_body:
                return cancelInsideBody(false);
            case Moment::paused:
                return cancelInsideBody(true);
            case Moment::end:
                return cancelAtTheEnd();
        }
        return NoRequestId;
    }

    Client::RequestId cancelQueued() {
        const EngineHold hold(engine());
        const Client::RequestId id = startDownload(config());
        cancel(id);
        return id;
    }

    Client::RequestId cancelConnecting() {
        const SilentListener nobody(SilentListener::Connects::Hang);
        RequestConfig hanging = config();
        hanging.url = nobody.url();
        const Client::RequestId id = startDownload(hanging);
        drain();
        cancel(id);
        drain();
        return id;
    }

    Client::RequestId cancelInside(const Reply& reply) {
        server.enqueue(reply);
        const Client::RequestId id = startDownload(config());
        server.awaitRequests(1);
        cancel(id);
        server.awaitPeerClosed(1);
        return id;
    }

    Client::RequestId cancelInsideBody(bool paused) {
        server.enqueue(Reply(200).body("new ").stallBeforeEnd("bytes"));
        const Client::RequestId id = startDownload(config());
        recorder.awaitProgress(id);
        if (paused) {
            pause(id);
            drain();
            server.release();
            server.awaitBodyBytesSent(9);
        }
        cancel(id);
        server.awaitPeerClosed(1);
        return id;
    }

    // Nothing is delivered while the executor's thread is in here.
    Client::RequestId cancelAtTheEnd() {
        server.enqueue(Reply(200).body("new bytes"));
        Client::RequestId id = NoRequestId;
        executor.run([&] {
            id = client->start_download(config(), target, {}, recorder.onResponse(), recorder.onError(),
                                        recorder.onProgress());
            executor.awaitTag(handler() == Handler::posting ? 0 : 4035);
            client->cancel_request(id);
        });
        return id;
    }

    // On the engine's thread the end is over before anybody could cancel it.
    static bool comesTooLate() { return moment() == Moment::end && handler() == Handler::inline_call; }
    static bool hasBegunTheFile() { return moment() >= Moment::inside_body && !comesTooLate(); }
};

TEST_P(DownloadCancelTest, NobodyIsCalledAndTheOldFileStays) {
    const Client::RequestId id = startAndCancel();
    drain();
    EXPECT_TRUE(recorder.heardNothingOf(id));
    EXPECT_EQ(content(), comesTooLate() ? "new bytes" : "old");
    if (!keeps() || !hasBegunTheFile()) {
        EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
        return;
    }
    ASSERT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[1])), moment() == Moment::end ? "new bytes" : "new ");
}

INSTANTIATE_TEST_SUITE_P(Moments, DownloadCancelTest,
                         testing::Combine(testing::Values(Moment::queued, Moment::connecting, Moment::headers_awaited,
                                                          Moment::inside_headers, Moment::inside_body, Moment::paused,
                                                          Moment::end),
                                          testing::Values(Handler::inline_call, Handler::posting), testing::Bool()),
                         [](const auto& tested) {
                             return nameOf(std::get<0>(tested.param)) +
                                    (std::get<1>(tested.param) == Handler::posting ? "Posted" : "OnTheEngineThread") +
                                    (std::get<2>(tested.param) ? "Keeping" : "");
                         });

class DownloadCancelAndResumeTest : public DownloadTest, public testing::WithParamInterface<Handler> {
 protected:
    DownloadCancelAndResumeTest() : DownloadTest(GetParam()) {}
};

// Each goes on from the last byte of the one before, however little time there was to write it.
TEST_P(DownloadCancelAndResumeTest, ADownloadIsCancelledAndResumedInOneGoTimeAndAgain) {
    const std::string whole = pattern(100000);
    constexpr std::size_t piece = 1003;
    server.onRequest([&](const ReceivedRequest& request) {
        const std::size_t from = std::stoul(request.header("Range").value_or("bytes=0-").substr(6));
        Reply reply(from == 0 ? 200 : 206);
        reply.header("Content-Range", "bytes " + std::to_string(from) + "-99999/100000");
        return reply.body(whole.substr(from, piece)).stallBeforeEnd(whole.substr(std::min(from + piece, whole.size())));
    });
    Client::RequestId id = startDownload(resuming());
    for (int times = 0; times < 50; ++times) {
        recorder.awaitProgress(id);
        executor.run([&] {
            client->cancel_request(id);
            id = client->start_download(resuming(), target, {}, recorder.onResponse(), recorder.onError(),
                                        recorder.onProgress());
        });
    }
    recorder.awaitProgress(id);
    server.release(51);
    EXPECT_EQ(responseOf(id).status, 206);
    EXPECT_TRUE(content() == whole);
    EXPECT_EQ(recorder.outcomes().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Completions, DownloadCancelAndResumeTest,
                         testing::Values(Handler::inline_call, Handler::posting), [](const auto& handler) {
                             return handler.param == Handler::posting ? "Posted" : "OnTheEngineThread";
                         });

// --- the engine ends ---

class DownloadEngineEndTest : public DownloadTest {
 protected:
    DownloadEngineEndTest() : DownloadTest(Handler::posting) { writeWholeFile(target, "old"); }

    Client::RequestId startHalf(const RequestConfig& config) {
        server.enqueue(Reply(200).body("new ").stallBeforeEnd("bytes"));
        const Client::RequestId id = startDownload(config);
        recorder.awaitProgress(id);
        return id;
    }
};

TEST_F(DownloadEngineEndTest, AnUnfinishedFileGoesWithItsRequest) {
    const Client::RequestId id = startHalf(get());
    stopEngine();
    cancel(id);
    EXPECT_TRUE(recorder.heardNothingOf(id));
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadEngineEndTest, AnUnfinishedFileIsKeptOnDemand) {
    const Client::RequestId id = startHalf(keeping());
    stopEngine();
    cancel(id);
    ASSERT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[1])), "new ");
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadEngineEndTest, AnUnfinishedFileIsGoneOnWithByTheNextEngine) {
    writeWholeFile(target, "");
    const Client::RequestId id = startHalf(resuming());
    stopEngine();
    cancel(id);
    EXPECT_EQ(content(), "new ");
    startEngine();
    server.enqueue(Reply(206).header("Content-Range", "bytes 4-8/9").body("bytes"));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_EQ(content(), "new bytes");
}

TEST_F(DownloadEngineEndTest, ACompletionOnItsWayStillReplacesTheFile) {
    server.enqueue(Reply(200).stallBeforeHeaders().body("new bytes"));
    const Client::RequestId id = startDownload(get());
    server.awaitRequests(1);
    executor.hold();
    server.release();
    executor.awaitTag(0);
    stopEngine();
    executor.release();
    EXPECT_EQ(recorder.await(id).response->status, 200);
    EXPECT_EQ(content(), "new bytes");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadEngineEndTest, ACancelledCompletionOnItsWayDoesNot) {
    server.enqueue(Reply(200).body("new bytes"));
    executor.run([&] {
        const Client::RequestId id =
            client->start_download(get(), target, {}, recorder.onResponse(), recorder.onError(), recorder.onProgress());
        executor.awaitTag(0);
        stopEngine();
        client->cancel_request(id);
    });
    executor.run([] {});
    EXPECT_THAT(recorder.outcomes(), IsEmpty());
    EXPECT_EQ(content(), "old");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

// The empty file is made at the very end, by whoever runs the completion.
TEST_F(DownloadEngineEndTest, ACancelledCompletionOnItsWayMakesNoEmptyFile) {
    server.enqueue(Reply(200));
    executor.run([&] {
        const Client::RequestId id =
            client->start_download(get(), target, {}, recorder.onResponse(), recorder.onError(), recorder.onProgress());
        executor.awaitTag(0);
        client->cancel_request(id);
    });
    drain();
    EXPECT_THAT(recorder.outcomes(), IsEmpty());
    EXPECT_EQ(content(), "old");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

}  // namespace
}  // namespace kel::http::test
