// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <future>
#include <stdexcept>

#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "support/ClosedPort.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

// --- what a result and a status mean; no engine is needed ---

class OutcomeTest : public testing::Test {
 protected:
    static RecordingRequestPtr completed(CURLcode result, long status) {
        RequestConfig config;
        config.url = "https://host:1/path";
        const auto request = std::make_shared<RecordingRequest>(config);
        Engine::runCallbackHandlerInFsmContext(request, result, status);
        return request;
    }

    static std::string outcomeOf(CURLcode result, long status) {
        const auto request = completed(result, status);
        EXPECT_EQ(request->outcome.count(), 1U);
        return request->outcome.events().at(0);
    }
};

TEST_F(OutcomeTest, EachLibcurlErrorHasItsFailure) {
    const std::map<int, int> known = {{CURLE_UNSUPPORTED_PROTOCOL, 0},  {CURLE_URL_MALFORMAT, 0},
                                      {CURLE_COULDNT_RESOLVE_PROXY, 1}, {CURLE_COULDNT_RESOLVE_HOST, 1},
                                      {CURLE_COULDNT_CONNECT, 5},       {CURLE_WRITE_ERROR, 7},
                                      {CURLE_OPERATION_TIMEDOUT, 3},    {CURLE_RANGE_ERROR, 8}};
    for (int code = 1; code < CURL_LAST; ++code) {
        const auto found = known.find(code);
        const int failure = found == known.end() ? 2 : found->second;
        const LogCapture log("HttpClient", 1);
        const auto result = static_cast<CURLcode>(code);
        const auto request = completed(result, 0);
        EXPECT_THAT(request->hooks.events(),
                    ElementsAre(fmt::format("failure {}: {}", failure, curl_easy_strerror(result))));
        const std::string unexpected = "Got unexpected Curl error code: " + std::to_string(code);
        EXPECT_EQ(log.count("Got unexpected"), found == known.end() ? 1U : 0U) << code;
        if (found == known.end()) {
            EXPECT_THAT(log.lines(), Contains(EngineLine(1, unexpected)));
        }
        EXPECT_THAT(log.lines().back(), EngineLine(1, "(0) Failed to connect to 'host:1': "));
    }
}

TEST_F(OutcomeTest, LibcurlErrorKeepsTheStatusItCameWith) {
    EXPECT_EQ(completed(CURLE_PARTIAL_FILE, 200)->getResponseCode(), 200U);
    EXPECT_EQ(completed(CURLE_OPERATION_TIMEDOUT, 404)->getResponseCode(), 404U);
    EXPECT_EQ(completed(CURLE_OPERATION_TIMEDOUT, -1)->getResponseCode(), 0U);
}

TEST_F(OutcomeTest, SuccessfulStatusEndsTheData) {
    for (const long status : {100, 101, 199, 200, 204, 206, 299, 300, 301, 302, 304, 399}) {
        const auto request = completed(CURLE_OK, status);
        EXPECT_THAT(request->hooks.events(), ElementsAre("progress 0/0", "end")) << status;
        EXPECT_EQ(request->getResponseCode(), status);
    }
}

TEST_F(OutcomeTest, LastProgressIsReportedAsReachedBeforeTheEnd) {
    const auto request = std::make_shared<RecordingRequest>();
    request->lastDownloadProgress = 4711;
    Engine::runCallbackHandlerInFsmContext(request, CURLE_OK, 200);
    EXPECT_THAT(request->hooks.events(), ElementsAre("progress 4711/4711", "end"));
}

TEST_F(OutcomeTest, RefusedAccessIsAnAuthFailure) {
    for (const long status : {401, 403, 407}) {
        EXPECT_EQ(outcomeOf(CURLE_OK, status), fmt::format("failure 4: HTTP code={}", status));
    }
}

TEST_F(OutcomeTest, OtherErrorStatusIsAnHttpError) {
    for (const long status : {400, 402, 404, 405, 406, 408, 418, 499, 500, 503, 599}) {
        EXPECT_EQ(outcomeOf(CURLE_OK, status), fmt::format("failure 6: HTTP code={}", status));
        EXPECT_EQ(completed(CURLE_OK, status)->getResponseCode(), status);
    }
}

TEST_F(OutcomeTest, StatusThatIsNoneBecomesZero) {
    for (const long status : {-1L, 0L, 1L, 99L, 600L, 999L, 1L << 31, -500L}) {
        EXPECT_EQ(outcomeOf(CURLE_OK, status), "failure 2: HTTP code=0") << status;
        EXPECT_EQ(completed(CURLE_OK, status)->getResponseCode(), 0U);
    }
}

TEST_F(OutcomeTest, CancelledRequestHasNone) {
    const auto request = std::make_shared<RecordingRequest>();
    request->tryToCancelRequest();
    Engine::runCallbackHandlerInFsmContext(request, CURLE_OK, 200);
    Engine::runCallbackHandlerInFsmContext(request, CURLE_COULDNT_CONNECT, 0);
    EXPECT_THAT(request->hooks.events(), IsEmpty());
    EXPECT_EQ(request->getResponseCode(), 4294967295U);
}

// --- real transfers ---

class EngineCompletionTest : public EngineTest {
 protected:
    EngineCompletionTest() { startEngine(); }

    RecordingRequestPtr finish(const RequestConfig& config) {
        const auto made = run(config);
        made->outcome.awaitCount(1);
        return made;
    }
};

TEST_F(EngineCompletionTest, ResponseIsLoggedAndEndsOnce) {
    server.enqueue(Reply(200).body("body"));
    const LogCapture log("HttpClient", 1);
    const auto request = finish(get());
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->getResponseCode(), 200U);
    EXPECT_EQ(request->body(), "body");
    EXPECT_THAT(log.lines().back(),
                EngineLine(1, fmt::format("({}) HTTP: Incoming <= 200, 'No error'", request->id())));
}

TEST_F(EngineCompletionTest, ProgressEndsWithAllOfTheBodyBeforeTheEnd) {
    server.enqueue(Reply(200).body("0123456789"));
    const std::vector<std::string> events = finish(get())->hooks.events();
    ASSERT_GE(events.size(), 2U);
    EXPECT_EQ(events[events.size() - 2], "progress 10/10");
    EXPECT_EQ(events.back(), "end");
}

TEST_F(EngineCompletionTest, ProgressOfAnUnknownLengthEndsWithNothing) {
    server.enqueue(Reply(200).chunked().body("0123456789"));
    const std::vector<std::string> events = finish(get())->hooks.events();
    ASSERT_GE(events.size(), 2U);
    EXPECT_THAT(events, Contains("progress 10/0"));
    EXPECT_EQ(events[events.size() - 2], "progress 0/0");
}

TEST_F(EngineCompletionTest, StatusOfTheServerDecides) {
    const NginxServer nginx;
    const std::map<int, std::string> outcomes = {{200, "end"},
                                                 {204, "end"},
                                                 {304, "end"},
                                                 {400, "failure 6: HTTP code=400"},
                                                 {401, "failure 4: HTTP code=401"},
                                                 {403, "failure 4: HTTP code=403"},
                                                 {404, "failure 6: HTTP code=404"},
                                                 {407, "failure 4: HTTP code=407"},
                                                 {500, "failure 6: HTTP code=500"},
                                                 {503, "failure 6: HTTP code=503"}};
    for (const auto& [status, outcome] : outcomes) {
        RequestConfig config = get();
        config.url = nginx.url("/status/" + std::to_string(status));
        const auto request = finish(config);
        EXPECT_THAT(request->outcome.events(), ElementsAre(outcome));
        EXPECT_EQ(request->getResponseCode(), status);
    }
}

TEST_F(EngineCompletionTest, StatusOf600IsStoredAsZero) {
    server.enqueue(Reply(600));
    const auto request = finish(get());
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 2: HTTP code=0"));
    EXPECT_EQ(request->getResponseCode(), 0U);
}

TEST_F(EngineCompletionTest, FailureWithoutAStatusHasLibcurlsTextAndIsLogged) {
    const ClosedPort closed;
    const LogCapture log("HttpClient", 1);
    RequestConfig config = get();
    config.url = closed.url();
    const auto request = finish(config);
    const std::string outcome = request->outcome.events().at(0);
    const std::string text = outcome.substr(std::string("failure 5: ").size());
    EXPECT_THAT(outcome, StartsWith("failure 5: Failed to connect to 127.0.0.1 port "));
    EXPECT_EQ(request->getResponseCode(), 0U);
    EXPECT_THAT(
        log.lines(),
        Contains(EngineLine(1, fmt::format("({}) HTTP: Incoming <= 0, 'Couldn't connect to server'", request->id()))));
    EXPECT_THAT(log.lines().back(), EngineLine(1, fmt::format("({}) Failed to connect to '127.0.0.1:{}': {}",
                                                              request->id(), closed.port(), text)));
}

TEST_F(EngineCompletionTest, BrokenResponseIsAFailure) {
    server.enqueue(Reply(200).body("x").closeInsideBody());
    const auto short_body = finish(get());
    EXPECT_THAT(short_body->outcome.events(),
                ElementsAre(StartsWith("failure 2: transfer closed with 100 bytes remaining")));
    EXPECT_EQ(short_body->getResponseCode(), 200U);
    server.enqueue(Reply(200).closeBeforeHeaders());
    EXPECT_THAT(finish(get())->outcome.events(), ElementsAre("failure 2: Empty reply from server"));
    server.enqueue(Reply(200).resetBeforeHeaders());
    EXPECT_THAT(finish(get())->outcome.events(), ElementsAre(StartsWith("failure 2: Recv failure: Connection reset")));
    server.enqueue(Reply::raw("this is not HTTP\r\n\r\n").closeAfterwards());
    EXPECT_THAT(finish(get())->outcome.events(), ElementsAre("failure 0: Received HTTP/0.9 when not allowed"));
}

TEST_F(EngineCompletionTest, EarlierErrorTextIsNotToldAgain) {
    const auto request = this->request(get());
    {
        const ClosedPort closed;
        request->config.url = closed.url();
        request->runRequest();
        request->outcome.awaitCount(1);
    }
    server.enqueue(Reply(404));
    request->config.url = server.url();
    request->runRequest();
    request->outcome.awaitCount(2);
    EXPECT_EQ(request->outcome.events().at(1), "failure 6: HTTP code=404");
}

// --- where completions run ---

TEST_F(EngineCompletionTest, HandlerDecidesWhereCompletionsRun) {
    class ThreadKeeper : public RecordingRequest {
     public:
        using RecordingRequest::RecordingRequest;
        void notifyDataEnd() override {
            thread = ko::this_thread::get_id();
            RecordingRequest::notifyDataEnd();
        }
        ko::thread_id thread = ko::invalid_thread_id;
    };
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    const auto inline_run = std::make_shared<ThreadKeeper>(get());
    inline_run->runRequest();
    inline_run->outcome.await("end");
    ko::thread_id engine_thread = ko::invalid_thread_id;
    onEngineThread([&engine_thread] { engine_thread = ko::this_thread::get_id(); });
    EXPECT_EQ(inline_run->thread, engine_thread);

    stopEngine();
    startEngine(Handler::posting);
    const auto posted = std::make_shared<ThreadKeeper>(get());
    posted->runRequest();
    posted->outcome.await("end");
    EXPECT_EQ(posted->thread, executor.threadId());
    EXPECT_THAT(executor.tags(), SizeIs(1));
}

TEST_F(EngineCompletionTest, FailedSetUpRunsWhereCompletionsDo) {
    stopEngine();
    startEngine(Handler::posting);
    RequestConfig config = get();
    config.headers[""] = "x";
    finish(config);
    EXPECT_THAT(executor.tags(), SizeIs(1));
}

TEST_F(EngineCompletionTest, EngineGoesOnWhileACompletionWaits) {
    stopEngine();
    startEngine(Handler::posting);
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    executor.hold();
    const auto first = run(get());
    executor.awaitPosted(1);
    const auto second = run(get());
    executor.awaitPosted(2);
    EXPECT_THAT(first->outcome.events(), IsEmpty());
    executor.release();
    first->outcome.await("end");
    second->outcome.await("end");
}

TEST_F(EngineCompletionTest, FinalHookMayStartItsRequestAnew) {
    class Restarting : public RecordingRequest {
     public:
        using RecordingRequest::RecordingRequest;
        void notifyDataEnd() override {
            if (outcome.count() < 4) runRequest();
            RecordingRequest::notifyDataEnd();
        }
    };
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    const auto request = std::make_shared<Restarting>(get());
    request->runRequest();
    request->outcome.await("end", 5);
    EXPECT_EQ(request->getRedirectCount(), 5U);
    EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(EngineCompletionTest, ManyRequestsAtOnceEndOnceEach) {
    server.onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.target); });
    std::vector<RecordingRequestPtr> requests;
    for (int i = 0; i < 200; ++i) requests.push_back(run(get("/" + std::to_string(i))));
    for (std::size_t i = 0; i < requests.size(); ++i) {
        requests[i]->outcome.await("end");
        EXPECT_EQ(requests[i]->body(), "/" + std::to_string(i));
    }
    drain();
    for (const auto& request : requests) EXPECT_EQ(request->outcome.count(), 1U);
}

// --- redirects ---

TEST_F(EngineCompletionTest, UrlReachedIsTheRedirectUrlByDefault) {
    const NginxServer nginx;
    RequestConfig config = get();
    config.url = nginx.url("/redirect/2");
    const auto redirected = finish(config);
    EXPECT_EQ(redirected->getRedirectUrl(), nginx.url("/redirect/0"));
    EXPECT_EQ(redirected->getRedirectCount(), 1U);
    config.url = nginx.url("/status/200");
    const auto plain = finish(config);
    EXPECT_EQ(plain->getRedirectUrl(), config.url);
    EXPECT_EQ(plain->getRedirectCount(), 1U);
}

TEST_F(EngineCompletionTest, FailedTransferHasItsUrlToo) {
    const ClosedPort closed;
    RequestConfig config = get();
    config.url = closed.url("/x");
    const auto request = finish(config);
    EXPECT_EQ(request->getRedirectUrl(), closed.url("/x"));
    EXPECT_EQ(request->getRedirectCount(), 1U);
}

TEST_F(EngineCompletionTest, WithoutARedirectTheCallerIsToldNoUrl) {
    RequestConfig config = get();
    config.caller_handles_redirects = true;
    server.enqueue(Reply::redirect("/next?x=1"));
    const auto request = finish(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->getResponseCode(), 302U);
    EXPECT_EQ(request->getRedirectUrl(), server.url("/next?x=1"));

    server.enqueue(Reply(200));
    request->runRequest();
    request->outcome.await("end", 2);
    EXPECT_EQ(request->getRedirectUrl(), tl::nullopt);
    EXPECT_EQ(request->getRedirectCount(), 2U);
}

TEST_F(EngineCompletionTest, RequestThatCouldNotBeSetUpHasNoUrl) {
    RequestConfig config = get();
    config.headers[""] = "x";
    const auto request = finish(config);
    EXPECT_EQ(request->getRedirectUrl(), tl::nullopt);
    EXPECT_EQ(request->getRedirectCount(), 0U);
}

TEST_F(EngineCompletionTest, EachRunBeginsWithoutWhatTheOneBeforeHasLeft) {
    server.enqueue(Reply(200));
    RequestConfig config = get();
    config.timing_data = true;
    const auto request = finish(config);
    ASSERT_TRUE(request->getTimingData());
    ASSERT_TRUE(request->getRedirectUrl());
    drain();
    request->config.timing_data = false;
    request->config.headers[""] = "can not be sent";
    request->runRequest();
    request->outcome.awaitCount(2);
    EXPECT_FALSE(request->getTimingData());
    EXPECT_FALSE(request->getRedirectUrl());
    EXPECT_EQ(request->getRedirectCount(), 1U);  // how many have completed, in all runs
}

// The text stands in a buffer of the request's, which the next run clears.
TEST_F(EngineCompletionTest, TextOfAFailureOutlivesAnotherRunFromWithinItsHook) {
    struct Repeating : RecordingRequest {
        using RecordingRequest::RecordingRequest;
        void notifyFailure(Failure failure, std::string_view text) override {
            if (outcome.count() == 0) {
                runRequest();
                engineHasBegun.get_future().wait();
            }
            RecordingRequest::notifyFailure(failure, text);
        }
        std::promise<void> engineHasBegun;
    };
    stopEngine();
    startEngine(Handler::posting);
    const ClosedPort closed;
    RequestConfig config = get();
    config.url = closed.url();
    const auto request = std::make_shared<Repeating>(config);
    int begun = 0;
    engine().onNewRequest([&] {
        if (++begun == 2) engine().queueRequest([&] { request->engineHasBegun.set_value(); });
    });
    request->runRequest();
    request->outcome.awaitCount(2);
    const std::string text = request->outcome.events().at(0);
    EXPECT_THAT(text, StartsWith("failure 5: "));
    EXPECT_THAT(text, HasSubstr("connect to server"));
}

// --- timing ---

TEST_F(EngineCompletionTest, TimingIsCollectedOnDemandOnly) {
    server.enqueue(Reply(200));
    const LogCapture log("HttpClient", 9);
    EXPECT_FALSE(finish(get())->getTimingData());
    EXPECT_FALSE(log.contains("addTimingData"));
}

TEST_F(EngineCompletionTest, TimingIsStoredAndLogged) {
    const LogCapture log("HttpClient", 9);
    RequestConfig config = get();
    config.timing_data = true;
    config.timeout = std::chrono::milliseconds(1000);  // time enough to connect
    const auto request = finish(config);
    ASSERT_TRUE(request->getTimingData());
    const TimingData timing = *request->getTimingData();
    EXPECT_LT(timing.namelookup, 1000);
    EXPECT_EQ(timing.appconnect, 0);
    EXPECT_GT(timing.connect, 0);
    EXPECT_GE(timing.pretransfer, timing.connect);
    EXPECT_GE(timing.total, 990000);  // libcurl may be a millisecond early
    EXPECT_EQ(timing.redirect, 0);
    EXPECT_THAT(
        log.lines(),
        Contains(EngineLine(9, fmt::format("({}) Engine::addTimingData: namelookup={}ms connect={}ms appconnect={}ms "
                                           "prexfer={}ms startxfer={}ms total={}ms redir={}ms",
                                           request->id(), timing.namelookup, timing.connect, timing.appconnect,
                                           timing.pretransfer, timing.starttransfer, timing.total, timing.redirect))));
}

TEST_F(EngineCompletionTest, TimingIsNotLoggedBelowItsLevel) {
    server.enqueue(Reply(200));
    const LogCapture log("HttpClient", 8);
    RequestConfig config = get();
    config.timing_data = true;
    EXPECT_TRUE(finish(config)->getTimingData());
    EXPECT_FALSE(log.contains("addTimingData"));
}

TEST_F(EngineCompletionTest, TimingOfARedirectedTransferCountsTheRedirects) {
    const NginxServer nginx;
    RequestConfig config = get();
    config.url = nginx.url("/redirect/3");
    config.timing_data = true;
    EXPECT_GT(finish(config)->getTimingData()->redirect, 0);
}

}  // namespace
}  // namespace kel::http::test
