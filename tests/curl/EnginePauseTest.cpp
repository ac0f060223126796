// SPDX-License-Identifier: MIT
#include <stdexcept>

#include "curl/LineMatcher.h"
#include "curl/MomentTest.h"
#include "fixture/TestDevice.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class EnginePauseMomentTest : public MomentTest {};

INSTANTIATE_TEST_SUITE_P(Paused, EnginePauseMomentTest,
                         inEveryWay({Moment::queued, Moment::sending, Moment::headers_awaited, Moment::inside_headers,
                                     Moment::inside_body}),
                         nameOf);

TEST_P(EnginePauseMomentTest, PausedRequestDeliversEveryByteAfterResume) {
    const auto request = reach();
    request->pauseRequest();
    letGo();
    drain();
    const std::string before = request->body();
    EXPECT_EQ(before, moment() == Moment::inside_body ? FirstHalf : "");
    request->resumeRequest();
    request->outcome.await("end");
    EXPECT_EQ(request->body(), std::string(FirstHalf) + SecondHalf);
    EXPECT_EQ(request->outcome.count(), 1U);
}

TEST_P(EnginePauseMomentTest, PauseAndResumeInOneGoChangeNothing) {
    const auto request = reach();
    request->pauseRequest();
    request->resumeRequest();
    letGo();
    request->outcome.await("end");
    EXPECT_EQ(request->body(), std::string(FirstHalf) + SecondHalf);
}

class EnginePauseTest : public EngineTest {
 protected:
    EnginePauseTest() { startEngine(); }
};

TEST_F(EnginePauseTest, NothingIsDeliveredWhilePaused) {
    server.enqueue(Reply(200).body("first half").stallBeforeEnd("second half"));
    const auto request = run(get());
    request->hooks.await("data 10");
    request->pauseRequest();
    drain();
    server.release();
    server.awaitBodyBytesSent(21);
    drain();
    EXPECT_EQ(request->body(), "first half");
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    request->resumeRequest();
    request->outcome.await("end");
    EXPECT_EQ(request->body(), "first halfsecond half");
}

TEST_F(EnginePauseTest, AnswerOfOnePausesAndTheSameBytesComeAgain) {
    server.enqueue(Reply(200).body("body"));
    EventLog seen;
    const auto request = this->request(get());
    request->onData = [&seen](std::string_view data) {
        seen.add(std::string(data));
        return seen.count() == 1 ? 1 : 0;
    };
    request->runRequest();
    seen.await("body");
    drain();
    EXPECT_EQ(request->body(), "");
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    engine().resumeRequest(request);
    request->outcome.await("end");
    EXPECT_EQ(request->body(), "body");
    EXPECT_THAT(seen.events(), ElementsAre("body", "body"));
}

TEST_F(EnginePauseTest, OtherAnswersTakeTheBytes) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
    for (const int answer : {-1, 2, 4}) {
        const auto request = this->request(get());
        request->onData = [answer](std::string_view) { return answer; };
        request->runRequest();
        request->outcome.await("end");
    }
}

TEST_F(EnginePauseTest, PauseInsideALargeBodyKeepsItWhole) {
    std::string body;
    while (body.size() < (8U << 20U)) body += std::to_string(body.size()) + ' ';
    server.enqueue(Reply(200).body(body));
    const auto request = this->request(get());
    std::size_t pieces = 0;
    request->onData = [&](std::string_view) {
        if (++pieces % 100 != 0) return 0;
        request->pauseRequest();
        request->resumeRequest();
        return 1;
    };
    request->runRequest();
    request->outcome.await("end");
    request->onData = nullptr;
    EXPECT_TRUE(request->body() == body);
}

TEST_F(EnginePauseTest, PausedUploadGoesOnAfterResume) {
    const std::string body(16U << 20U, 'u');
    server.enqueue(Reply(200).stallBeforeRequestBody());
    RequestConfig config = get();
    config.method = Method::PUT;
    config.body = body;
    const auto request = run(config);
    server.awaitHeaderBlocks(1);
    request->pauseRequest();
    drain();
    server.release();
    // In the time that this one takes, the other would have been through as well.
    server.enqueue(Reply(200));
    config.body = std::string(48U << 20U, 'v');
    run(config)->outcome.await("end");
    EXPECT_THAT(server.requests(), SizeIs(1));
    request->resumeRequest();
    request->outcome.await("end");
    EXPECT_TRUE(server.requests().at(1).body == body);
}

TEST_F(EnginePauseTest, WriteErrorAtResumeEndsTheRequestOnce) {
    const LogCapture log("HttpClient", 1);
    server.enqueue(Reply(200).body("first half").stallBeforeEnd("second half"));
    const auto request = this->request(get());
    int calls = 0;
    request->onData = [&calls](std::string_view) {
        if (++calls == 1) return 1;
        throw std::runtime_error("disk full");
    };
    request->runRequest();
    request->hooks.await("data 10");
    drain();
    engine().resumeRequest(request);
    request->outcome.awaitCount(1);
    server.release();
    server.awaitPeerClosed(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 7: Failed writing received data to disk/application"));
    EXPECT_EQ(log.count("writeFunction: Receiving data failed: 'disk full'"), 1U);
}

TEST_F(EnginePauseTest, PausedRequestStillTimesOut) {
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(200);
    const auto request = this->request(config);
    request->pauseRequest();
    request->runRequest();
    request->outcome.awaitCount(1);
    EXPECT_THAT(request->outcome.events(), ElementsAre(::testing::StartsWith("failure 3: ")));
}

TEST_F(EnginePauseTest, PauseOfOneLeavesTheOthersAlone) {
    server.enqueue(Reply(200).body("first half").stallBeforeEnd("second half"));
    const auto paused = run(get());
    paused->hooks.await("data 10");
    paused->pauseRequest();
    server.enqueue(Reply(200).body("other"));
    const auto other = run(get());
    other->outcome.await("end");
    EXPECT_THAT(paused->outcome.events(), IsEmpty());
    paused->resumeRequest();
    server.release();
    paused->outcome.await("end");
    EXPECT_EQ(paused->body(), "first halfsecond half");
}

TEST(EnginePauseOverTlsTest, PauseInsideAnHttp2BodyKeepsItWhole) {
    const TestHost host(withTestDevice);
    NginxServer::Options options;
    options.tls = true;
    NginxServer nginx(options);
    std::string body;
    while (body.size() < (4U << 20U)) body += std::to_string(body.size()) + ' ';
    nginx.writeFile("large", body);

    const Engine engine([](const std::function<void()>& completion) { completion(); });
    RequestConfig config;
    config.url = nginx.tlsUrl("/large");
    config.tls_verify = false;
    const auto request = std::make_shared<RecordingRequest>(config);
    std::size_t pieces = 0;
    request->onData = [&](std::string_view) {
        if (++pieces % 20 != 0) return 0;
        request->pauseRequest();
        request->resumeRequest();
        return 1;
    };
    request->runRequest();
    request->outcome.await("end");
    request->onData = nullptr;
    EXPECT_THAT(request->hooks.events(), Contains("header HTTP/2 200 "));
    EXPECT_TRUE(request->body() == body);
}

}  // namespace
}  // namespace kel::http::test
