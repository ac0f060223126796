// SPDX-License-Identifier: MIT
#include "kel-http/curl/Request.h"

#include <set>
#include <thread>

#include "fixture/EngineTest.h"
#include "fixture/LogCapture.h"
#include "support/VirtualPlace.h"

namespace kel::http::test {
namespace {

using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

std::uint16_t nextId() {
    const auto request = std::make_shared<RecordingRequest>();
    request->allocateRequestId();
    return request->id();
}

TEST(RequestTest, FreshRequestHasNoOutcomeYet) {
    const RecordingRequest request;
    EXPECT_EQ(request.id(), 0U);
    EXPECT_EQ(request.getResponseCode(), 4294967295U);
    EXPECT_EQ(request.getRedirectUrl(), tl::nullopt);
    EXPECT_EQ(request.getRedirectCount(), 0U);
    EXPECT_FALSE(request.getTimingData());
    EXPECT_EQ(request.lastDownloadProgress, 0U);
    EXPECT_TRUE(request.allowsPayloadLogging());
    EXPECT_FALSE(request.isPaused());
}

TEST(RequestTest, RequestKeepsACopyOfItsConfiguration) {
    RequestConfig config;
    config.url = "http://host/";
    const RecordingRequest request(config);
    config.url.clear();
    EXPECT_EQ(request.config.url, "http://host/");
    EXPECT_EQ(RecordingRequest().config.method, Method::GET);
}

TEST(RequestTest, ResponseCodeAndPayloadLoggingAreKept) {
    RecordingRequest request;
    request.setResponseCode(204);
    EXPECT_EQ(request.getResponseCode(), 204U);
    request.setAllowPayloadLogging(false);
    EXPECT_FALSE(request.allowsPayloadLogging());
}

// Death tests come first, so that nobody else has taken a number, wherever the process comes from.
TEST(RequestDeathTest, FirstRequestOfTheProcessIsNumberOne) {
    EXPECT_EXIT(std::exit(nextId()), ExitedWithCode(1), "");
}

TEST(RequestTest, IdsWrapFromTheLargestToOne) {
    const std::uint16_t first = nextId();
    std::uint16_t previous = first;
    std::set<std::uint16_t> seen{first};
    for (int i = 1; i < 65535; ++i) {
        const std::uint16_t id = nextId();
        EXPECT_EQ(id, previous == 65535 ? 1 : previous + 1);
        seen.insert(id);
        previous = id;
    }
    EXPECT_EQ(seen.size(), 65535U);
    EXPECT_EQ(seen.count(0), 0U);
    EXPECT_EQ(nextId(), first);
}

TEST(RequestTest, IdsTakenAtTheSameTimeAreDifferent) {
    constexpr std::size_t each = 2000;
    std::vector<std::vector<std::uint16_t>> taken(4);
    std::vector<std::thread> threads;
    for (auto& ids : taken) {
        threads.emplace_back([&ids] {
            for (std::size_t i = 0; i < each; ++i) ids.push_back(nextId());
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::set<std::uint16_t> all;
    for (const auto& ids : taken) all.insert(ids.begin(), ids.end());
    EXPECT_EQ(all.size(), 4 * each);
}

TEST(RequestTest, WithoutAnEngineOnlyIdAndPauseChange) {
    const auto request = std::make_shared<RecordingRequest>();
    request->runRequest();
    EXPECT_NE(request->id(), 0U);
    request->tryToCancelRequest();
    request->pauseRequest();
    EXPECT_TRUE(request->isPaused());
    request->resumeRequest();
    EXPECT_FALSE(request->isPaused());
    EXPECT_THAT(request->hooks.events(), IsEmpty());
    EXPECT_EQ(request.use_count(), 1);
}

TEST(RequestTest, WithoutAnEngineOneLineSaysWhatToDo) {
    const auto request = std::make_shared<RecordingRequest>();
    const LogCapture log("HttpClient", 1);
    request->runRequest();
    request->tryToCancelRequest();
    EXPECT_THAT(log.texts(),
                testing::ElementsAre(
                    "(" + std::to_string(request->id()) +
                    ") Request::runRequest: There is no engine: nothing is sent, and no callback will come. Make "
                    "a kel::http::Engine before the first request, and keep it until the last one has ended"));
    EXPECT_EQ(log.lines().at(0).level, 1);
}

TEST(RequestTest, WithoutAnEngineNobodyAsksForTheOwner) {
    RecordingRequest request;
    request.runRequest();
    request.tryToCancelRequest();
    request.pauseRequest();
    request.resumeRequest();
    EXPECT_THAT(request.hooks.events(), IsEmpty());
}

// Has no hooks but those that it must have.
class SimplestRequest : public Request {
 public:
    int notifyDataReceived(std::string_view /*data*/) override { return 0; }
    void notifyDataEnd() override {}
    void notifyFailure(Failure /*failure*/, std::string_view /*text*/) override {}
    virtual void more() {}
};

TEST(RequestTest, HooksThatNobodyReplacesDoNothing) {
    SimplestRequest request;
    request.notifyHeader("X-Header: value\r\n");
    request.notifyRemoteAddr("127.0.0.1", 80);
    request.reportDownloadProgress(9, 5);
    EXPECT_EQ(request.lastDownloadProgress, 0U);
    EXPECT_EQ(request.getResponseCode(), 4294967295U);
    EXPECT_EQ(request.getRedirectUrl(), tl::nullopt);
    EXPECT_EQ(request.id(), 0U);
}

TEST(RequestTest, VirtualFunctionsStandInTheirPlaces) {
    EXPECT_EQ(virtualPlace(&Request::runRequest), 0U);
    EXPECT_EQ(virtualPlace(&Request::tryToCancelRequest), 1U);
    EXPECT_EQ(virtualPlace(&Request::pauseRequest), 2U);
    EXPECT_EQ(virtualPlace(&Request::resumeRequest), 3U);
    EXPECT_EQ(virtualPlace(&Request::notifyDataReceived), 4U);
    EXPECT_EQ(virtualPlace(&Request::notifyHeader), 5U);
    EXPECT_EQ(virtualPlace(&Request::notifyDataEnd), 6U);
    EXPECT_EQ(virtualPlace(&Request::notifyFailure), 7U);
    EXPECT_EQ(virtualPlace(&Request::notifyRemoteAddr), 8U);
    EXPECT_EQ(virtualPlace(&Request::reportDownloadProgress), 9U);
    EXPECT_EQ(virtualPlace(&SimplestRequest::more), 12U) << "the destructor stands between";
}

class EngineRequestTest : public EngineTest {
 protected:
    EngineRequestTest() { startEngine(); }
};

TEST_F(EngineRequestTest, RequestThatNobodyOwnsCanNotReachTheEngine) {
    RecordingRequest request;
    EXPECT_THROW(request.runRequest(), std::bad_weak_ptr);
    EXPECT_THROW(request.tryToCancelRequest(), std::bad_weak_ptr);
    EXPECT_THROW(request.pauseRequest(), std::bad_weak_ptr);
    EXPECT_THROW(request.resumeRequest(), std::bad_weak_ptr);
}

TEST_F(EngineRequestTest, RequestRunsAgainUnderANewId) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("x"); });
    const auto made = run(get());
    made->outcome.await("end");
    const auto first = made->id();
    made->runRequest();
    made->outcome.await("end", 2);
    EXPECT_NE(made->id(), first);
    EXPECT_EQ(made->body(), "xx");
    EXPECT_EQ(made->getRedirectCount(), 2U);
}

TEST_F(EngineRequestTest, PausingWhatIsNotSetUpYetStillHoldsTheBodyBack) {
    server.enqueue(Reply(200).body("body"));
    const auto made = request(get());
    made->pauseRequest();
    drain();
    EXPECT_TRUE(made->isPaused());
    made->runRequest();
    made->hooks.await("header ");
    drain();
    EXPECT_EQ(made->body(), "");
    made->resumeRequest();
    made->outcome.await("end");
    EXPECT_EQ(made->body(), "body");
}

TEST_F(EngineRequestTest, IdleRequestIsIgnoredByTheEngine) {
    const auto made = request(get());
    made->tryToCancelRequest();
    made->pauseRequest();
    made->resumeRequest();
    drain();
    EXPECT_THAT(made->hooks.events(), IsEmpty());
    EXPECT_EQ(made.use_count(), 1);
}

// A misuse, since both transfers share the request's outcome; it must not do more harm than that.
TEST_F(EngineRequestTest, RequestThatRunsTwiceAtOnceEndsTwice) {
    const auto made = run(get());
    made->runRequest();
    server.awaitRequests(2);
    server.enqueue(Reply(200).body("x"));
    server.enqueue(Reply(404));
    made->outcome.awaitCount(2);
    EXPECT_THAT(made->outcome.events(), ::testing::UnorderedElementsAre("end", "failure 6: HTTP code=404"));
}

TEST_F(EngineRequestTest, RequestIsReleasedAfterItsEnd) {
    server.enqueue(Reply(200).body("x"));
    auto made = run(get());
    const std::weak_ptr<RecordingRequest> watch = made;
    made->outcome.await("end");
    drain();
    made.reset();
    EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace kel::http::test
