// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <future>

#include "curl/Interposed.h"
#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;

// What libcurl answers when it is asked for figures, memory and names.
class InterposedQueriesTest : public EngineTest {
 protected:
    InterposedQueriesTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        startEngine();
    }
    ~InterposedQueriesTest() override { stopEngine(); }

    RecordingRequestPtr finishTimed() {
        RequestConfig config = get();
        config.timing_data = true;
        const auto made = run(config);
        made->outcome.await("end");
        return made;
    }

    Interposed interposed;
};

TEST_F(InterposedQueriesTest, NameLookUpIsToldInMillisecondsAndTheOthersAsTheyAre) {
    constexpr curl_off_t beyond = curl_off_t{1} << 32;
    interposed.answerInfo(CURLINFO_NAMELOOKUP_TIME_T, CURLE_OK, beyond + 5999);
    interposed.answerInfo(CURLINFO_CONNECT_TIME_T, CURLE_OK, beyond + 2);
    interposed.answerInfo(CURLINFO_APPCONNECT_TIME_T, CURLE_OK, 3);
    interposed.answerInfo(CURLINFO_PRETRANSFER_TIME_T, CURLE_OK, 4);
    interposed.answerInfo(CURLINFO_STARTTRANSFER_TIME_T, CURLE_OK, 5);
    interposed.answerInfo(CURLINFO_TOTAL_TIME_T, CURLE_OK, 6999);
    interposed.answerInfo(CURLINFO_REDIRECT_TIME_T, CURLE_OK, 7);
    const LogCapture log("HttpClient", 9);
    const auto request = finishTimed();
    ASSERT_TRUE(request->getTimingData());
    const TimingData timing = *request->getTimingData();
    EXPECT_EQ(timing.namelookup, 5);
    EXPECT_EQ(timing.connect, 4294967298);
    EXPECT_EQ(timing.appconnect, 3);
    EXPECT_EQ(timing.pretransfer, 4);
    EXPECT_EQ(timing.starttransfer, 5);
    EXPECT_EQ(timing.total, 6999);
    EXPECT_EQ(timing.redirect, 7);
    EXPECT_THAT(log.lines(), Contains(EngineLine(
                                 9, "(" + std::to_string(request->id()) +
                                        ") Engine::addTimingData: namelookup=5ms connect=4294967298ms appconnect=3ms "
                                        "prexfer=4ms startxfer=5ms total=6999ms redir=7ms")));
}

TEST_F(InterposedQueriesTest, FigureThatIsMissingIsLoggedAndNothingIsStored) {
    struct Figure {
        CURLINFO info;
        const char* name;
        const char* reader;
    };
    for (const Figure& figure : {Figure{CURLINFO_NAMELOOKUP_TIME_T, "CURLINFO_NAMELOOKUP_TIME_T", "addTimingData"},
                                 Figure{CURLINFO_CONNECT_TIME_T, "CURLINFO_CONNECT_TIME_T", "operator()"},
                                 Figure{CURLINFO_APPCONNECT_TIME_T, "CURLINFO_APPCONNECT_TIME_T", "operator()"},
                                 Figure{CURLINFO_PRETRANSFER_TIME_T, "CURLINFO_PRETRANSFER_TIME_T", "operator()"},
                                 Figure{CURLINFO_STARTTRANSFER_TIME_T, "CURLINFO_STARTTRANSFER_TIME_T", "operator()"},
                                 Figure{CURLINFO_TOTAL_TIME_T, "CURLINFO_TOTAL_TIME_T", "operator()"},
                                 Figure{CURLINFO_REDIRECT_TIME_T, "CURLINFO_REDIRECT_TIME_T", "operator()"}}) {
        const LogCapture log("HttpClient", 1);
        interposed.answerInfo(figure.info, CURLE_UNKNOWN_OPTION, 0);
        const auto request = finishTimed();
        interposed.answerInfo(figure.info, CURLE_OK, 1);
        EXPECT_FALSE(request->getTimingData());
        EXPECT_THAT(log.lines(),
                    Contains(EngineLine(1, "(" + std::to_string(request->id()) + ") Engine::" + figure.reader +
                                               ": Failed to look up timing data from CURL (" + figure.name +
                                               "). Error='" + curl_easy_strerror(CURLE_UNKNOWN_OPTION) + "'")));
    }
}

TEST_F(InterposedQueriesTest, HeaderWithoutAPortTellsNoAddress) {
    interposed.answerInfo(CURLINFO_PRIMARY_PORT, CURLE_OK, 0);
    const auto request = run(get());
    request->outcome.await("end");
    EXPECT_THAT(request->hooks.events(), Contains(::testing::StartsWith("address")).Times(0));
}

TEST_F(InterposedQueriesTest, HeaderWithoutAnAddressTellsNone) {
    interposed.answerInfo(CURLINFO_PRIMARY_IP, CURLE_OK, 0);
    const auto request = run(get());
    request->outcome.await("end");
    EXPECT_THAT(request->hooks.events(), Contains(::testing::StartsWith("address")).Times(0));
}

// --- long tokens, sent in pieces ---

TEST_F(InterposedQueriesTest, TokenThatIsSentInPiecesIsNeverLogged) {
    for (const std::size_t bytes : {1000U, 7777U, 65536U}) {
        interposed.limitSends(bytes);
        const LogCapture log(9);
        for (const Method method : {Method::GET, Method::POST, Method::PUT}) {
            RequestConfig config = get();
            config.method = method;
            std::string token;
            // libcurl itself never ends a longer GET that is not sent at once.
            while (token.size() < (method == Method::GET ? 30000U : 300000U)) token += "token-to-hide,";
            config.headers = {{"Authorization", token}, {"Proxy-Authorization", token}};
            config.body = "question";
            run(config)->outcome.await("end");
            EXPECT_EQ(server.requests().back().header("Authorization"), token);
            EXPECT_EQ(server.requests().back().body, method == Method::GET ? "" : "question");
        }
        EXPECT_EQ(log.count("token-to-hide"), 0U) << bytes;
        EXPECT_EQ(log.count("question"), 2U) << bytes;
        EXPECT_GE(log.count("uthorization: xxxxxx"), 2U) << bytes;
    }
}

TEST_F(InterposedQueriesTest, TokenIsNotLoggedWhereverItsHeaderIsCut) {
    RequestConfig config = get();
    config.headers = {{"Authorization", "Bearer token-to-hide"}};
    for (std::size_t bytes = 1; bytes < 130; ++bytes) {
        interposed.limitSends(bytes);
        const LogCapture log(9);
        run(config)->outcome.await("end");
        std::string all;
        for (const std::string& text : log.texts()) all += text.substr(text.find("] ") + 2);
        all.erase(std::remove(all.begin(), all.end(), '\r'), all.end());
        EXPECT_EQ(all.find("token"), std::string::npos) << bytes;
        EXPECT_EQ(all.find("hide"), std::string::npos) << bytes;
    }
}

// --- names ---

TEST_F(InterposedQueriesTest, NameIsLookedUp) {
    interposed.holdNames();
    RequestConfig config;
    config.url = "http://kel.example:" + std::to_string(server.port()) + "/";
    const auto request = run(config);
    interposed.calls().await("resolve kel.example");
    interposed.releaseNames();
    request->outcome.await("end");
    EXPECT_EQ(server.requests().at(0).header("Host"), "kel.example:" + std::to_string(server.port()));
}

TEST_F(InterposedQueriesTest, LookUpThatHangsHoldsUpNobody) {
    interposed.holdNames();
    RequestConfig config;
    config.url = "http://kel.example:" + std::to_string(server.port()) + "/";
    const auto cancelled = run(config);
    config.timeout = std::chrono::milliseconds(100);
    const auto late = run(config);
    interposed.calls().await("resolve kel.example", 2);
    cancelled->tryToCancelRequest();
    late->outcome.awaitCount(1);
    run(get())->outcome.await("end");
    EXPECT_EQ(late->outcome.events().at(0).substr(0, 9), "failure 3");
    EXPECT_EQ(cancelled->outcome.count(), 0U);
    interposed.releaseNames();
}

TEST_F(InterposedQueriesTest, CancelWhileANameIsLookedUpCallsNothing) {
    interposed.holdNames();
    RequestConfig config;
    config.url = "http://kel.example:" + std::to_string(server.port()) + "/";
    auto request = run(config);
    interposed.calls().await("resolve kel.example");
    request->tryToCancelRequest();
    interposed.releaseNames();
    drain();
    EXPECT_EQ(request->outcome.count(), 0U);
    const std::weak_ptr<RecordingRequest> watch = request;
    request.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(InterposedQueriesTest, PauseWhileANameIsLookedUpHoldsTheBodyBack) {
    server.enqueue(Reply(200).body("body"));
    interposed.holdNames();
    RequestConfig config;
    config.url = "http://kel.example:" + std::to_string(server.port()) + "/";
    const auto request = run(config);
    interposed.calls().await("resolve kel.example");
    request->pauseRequest();
    interposed.releaseNames();
    drain();
    EXPECT_EQ(request->body(), "");
    request->resumeRequest();
    request->outcome.await("end");
    EXPECT_EQ(request->body(), "body");
}

TEST_F(InterposedQueriesTest, EngineMayEndWhileANameIsLookedUp) {
    interposed.holdNames();
    RequestConfig config;
    config.url = "http://kel.example:" + std::to_string(server.port()) + "/";
    const auto request = run(config);
    interposed.calls().await("resolve kel.example");
    {
        const LogCapture log("HttpClient", 8);
        engine().requestTermination();
        log.await("Exiting thread loop");
    }
    // Older libcurls wait for a look-up that is under way.
    const auto ending = std::async(std::launch::async, [this] { stopEngine(); });
    interposed.releaseNames();
    ending.wait();
    EXPECT_EQ(request->outcome.count(), 0U);
    EXPECT_EQ(request.use_count(), 1);
}

// --- what stops the process ---

class InterposedDeathTest : public testing::Test {
 protected:
    // Runs a request in an engine whose libcurl does what `prepare` says, until the process dies.
    static void runUntilDeath(const std::function<void(Interposed&)>& prepare, const RequestConfig& config) {
        Interposed interposed;
        prepare(interposed);
        const Engine engine([](const std::function<void()>& completion) { completion(); });
        std::make_shared<RecordingRequest>(config)->runRequest();
        pause();
    }

    static RequestConfig form() {
        RequestConfig config;
        config.url = "http://127.0.0.1/";
        config.method = Method::POST;
        config.mime_parts.push_back({"name", "data", "", ""});
        return config;
    }
};

TEST_F(InterposedDeathTest, StatusThatCanNotBeReadStops) {
    RequestConfig config;
    config.url = "ftp://127.0.0.1/";
    EXPECT_DEATH(runUntilDeath(
                     [](Interposed& interposed) {
                         interposed.answerInfo(CURLINFO_RESPONSE_CODE, CURLE_BAD_FUNCTION_ARGUMENT, 0);
                     },
                     config),
                 "kel-http/curl/Engine.*Assertion 'ret == CURLE_OK' failed");
}

TEST_F(InterposedDeathTest, AnswerOfAProxyThatCanNotBeReadStops) {
    RequestConfig config;
    config.url = "ftp://127.0.0.2/";
    config.proxies = {"http://127.0.0.1"};
    config.proxy = static_cast<Proxy>(2);  // the engine's own from now on
    EXPECT_DEATH(runUntilDeath(
                     [](Interposed& interposed) {
                         interposed.answerInfo(CURLINFO_HTTP_CONNECTCODE, CURLE_BAD_FUNCTION_ARGUMENT, 0);
                     },
                     config),
                 "kel-http/curl/EngineProxy.*Assertion 'ret == CURLE_OK' failed");
}

TEST_F(InterposedDeathTest, EngineWithoutAWakeUpDescriptorStops) {
    EXPECT_DEATH(runUntilDeath([](Interposed& interposed) { interposed.failEventfds(); }, form()),
                 "kel-http/curl/Engine.*Assertion 'false && \"CurlEngine: Error creating eventfd\\\\n\"' failed");
}

}  // namespace
}  // namespace kel::http::test
