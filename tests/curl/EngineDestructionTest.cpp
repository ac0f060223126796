// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "curl/LineMatcher.h"
#include "curl/MomentTest.h"
#include "fixture/TestDevice.h"
#include "support/NginxServer.h"
#include "support/OpenDescriptors.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EngineDestructionMomentTest : public MomentTest {};

INSTANTIATE_TEST_SUITE_P(Destroyed, EngineDestructionMomentTest,
                         inEveryWay({Moment::connecting, Moment::sending, Moment::headers_awaited,
                                     Moment::inside_headers, Moment::inside_body, Moment::paused}),
                         nameOf);

TEST_P(EngineDestructionMomentTest, EngineEndsWithoutAWordToItsRequest) {
    RecordingRequestPtr request = reach();
    const std::weak_ptr<RecordingRequest> watch = request;
    std::size_t heard = 0;
    {
        // One batch: no pass of the loop lies between the count and the engine's end.
        const EngineHold hold(engine());
        engine().queueRequest([&heard, made = request.get()] { heard = made->hooks.count(); });
        engine().requestTermination();
    }
    stopEngine();
    letGo();
    executor.run([] {});
    EXPECT_EQ(request->hooks.count(), heard);
    EXPECT_THAT(request->outcome.events(), IsEmpty());

    request->tryToCancelRequest();
    request.reset();
    EXPECT_TRUE(watch.expired());
}

class EngineDestructionTest : public EngineTest {};

// Goes when its transfer is freed, and writes to a peer that has gone, as a TLS connection does that says goodbye.
class RequestOnABrokenPipe : public RecordingRequest {
 public:
    explicit RequestOnABrokenPipe(const RequestConfig& request_config) : RecordingRequest(request_config) {}
    ~RequestOnABrokenPipe() override {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) std::abort();
        close(ends[1]);
        EXPECT_EQ(write(ends[0], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
        close(ends[0]);
    }
};

TEST_F(EngineDestructionTest, PeerThatHasGoneDoesNotKillTheThreadThatFreesTransfers) {
    startEngine();
    server.enqueue(Reply(200).stallBeforeHeaders());
    std::make_shared<RequestOnABrokenPipe>(get())->runRequest();
    server.awaitRequests(1);
    stopEngine();
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGPIPE), 0);
}

// A failed request asks its engine, which may be ending, to drop it.
class CancellingRequest : public RecordingRequest {
 public:
    using RecordingRequest::RecordingRequest;
    void notifyFailure(Failure failure, std::string_view text) override {
        tryToCancelRequest();
        RecordingRequest::notifyFailure(failure, text);
    }
};

TEST_F(EngineDestructionTest, PostedCompletionsMayRunWhileTheEngineEnds) {
    RequestConfig config;
    config.url = "ftp://refused";
    for (int round = 0; round < 20; ++round) {
        startEngine(Handler::posting);
        for (int i = 0; i < 20; ++i) std::make_shared<CancellingRequest>(config)->runRequest();
        onEngineThread([] {});
        stopEngine();
        executor.run([] {});
    }
}

TEST_F(EngineDestructionTest, QueuedRequestsAreSetUpAndFreedWithoutAWord) {
    startEngine();
    const LogCapture log("HttpClient", 1);
    std::vector<RecordingRequestPtr> requests;
    {
        const EngineHold hold(engine());
        for (int i = 0; i < 10; ++i) requests.push_back(run(get()));
        engine().requestTermination();
    }
    stopEngine();
    EXPECT_EQ(log.count("HTTP: Outgoing => GET"), 10U);
    EXPECT_EQ(server.connectionCount(), 0U);
    for (const RecordingRequestPtr& request : requests) {
        EXPECT_THAT(request->hooks.events(), IsEmpty());
        EXPECT_EQ(request.use_count(), 1);
    }
}

TEST_F(EngineDestructionTest, RequestQueuedBehindTheEndIsNeverSetUp) {
    startEngine();
    const LogCapture log("HttpClient", 8);
    engine().requestTermination();
    log.await("Exiting thread loop");
    const auto late = run(get());
    stopEngine();
    EXPECT_EQ(log.count("HTTP: Outgoing"), 0U);
    EXPECT_THAT(late->hooks.events(), IsEmpty());
    EXPECT_EQ(late.use_count(), 1);
}

TEST_F(EngineDestructionTest, PostedCompletionOutlivesTheEngine) {
    startEngine(Handler::posting);
    server.enqueue(Reply(200).body("x"));
    server.enqueue(Reply(404));
    executor.hold();
    const auto answered = run(get());
    server.awaitRequests(1);
    const auto refused = run(get());
    RequestConfig bad = get();
    bad.headers["X"] = "line\n";
    const auto not_set_up = run(bad);
    executor.awaitPosted(3);
    stopEngine();
    executor.release();
    executor.run([] {});
    EXPECT_THAT(answered->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(refused->outcome.events(), ElementsAre("failure 6: HTTP code=404"));
    EXPECT_THAT(not_set_up->outcome.events(), ElementsAre(::testing::StartsWith("failure 2: The value of")));
}

TEST_F(EngineDestructionTest, PostedFailureIsLoggedAfterTheEngineIsGone) {
    startEngine(Handler::posting);
    executor.hold();
    RequestConfig config;
    config.url = "ftp://server/";
    const auto failed = run(config);
    executor.awaitPosted(1);
    stopEngine();
    const LogCapture log("HttpClient", 1);
    executor.release();
    executor.run([] {});
    EXPECT_THAT(log.texts(), ElementsAre("(" + std::to_string(failed->id()) + ") Failed to connect to '" + config.url +
                                         "': Protocol \"ftp\" not supported or disabled in libcurl"));
}

TEST_F(EngineDestructionTest, PostedCompletionThatIsCancelledAfterTheEngineIsGoneCallsNothing) {
    startEngine(Handler::posting);
    server.enqueue(Reply(200));
    executor.hold();
    const auto request = run(get());
    executor.awaitPosted(1);
    stopEngine();
    request->tryToCancelRequest();
    executor.release();
    executor.run([] {});
    EXPECT_THAT(request->outcome.events(), IsEmpty());
}

TEST_F(EngineDestructionTest, NoDescriptorIsLost) {
    const TestHost host(withTestDevice);
    NginxServer::Options options;
    options.tls = true;
    NginxServer nginx(options);
    nginx.writeFile("large", std::string(1U << 20U, 'x'));
    for (int round = 0; round < 2; ++round) {
        // What libraries open for good at their first use shows in the first round.
        const OpenDescriptors descriptors;
        startEngine();
        RequestConfig upload = get();
        upload.url = nginx.url("/put/file");
        upload.method = Method::PUT;
        upload.body_is_file = true;
        for (const char* const path : {"/etc/hosts", "/nonexistent/file", "/etc"}) {
            upload.body = path;
            run(upload)->outcome.awaitCount(1);
        }
        RequestConfig secure = get();
        secure.url = nginx.tlsUrl("/status/200");
        secure.tls_verify = false;
        run(secure)->outcome.await("end");
        RequestConfig unfinished = get();
        unfinished.url = nginx.url("/limit/large?rate=10k");
        run(unfinished)->hooks.await("header HTTP/1.1 200 OK");
        stopEngine();
        if (round == 1) {
            EXPECT_THAT(descriptors.opened(), IsEmpty());
        }
    }
}

}  // namespace
}  // namespace kel::http::test
