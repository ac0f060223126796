// SPDX-License-Identifier: MIT
#include <atomic>
#include <chrono>

#include "curl/LineMatcher.h"
#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

using Mode = Engine::ProxyConfigMode;
using Behaviour = CountingProxy::Behaviour;

// What may come between a proxy that fails and the next one.
class EngineFailoverTest : public EngineTest, public ::testing::WithParamInterface<Handler> {
 protected:
    EngineFailoverTest() {
        target.onRequest([](const ReceivedRequest&) { return Reply(200).body("arrived"); });
        startEngine(GetParam()).setProxyConfig(Mode::PACUrl, "", "", "");
    }
    ~EngineFailoverTest() override { stopEngine(); }

    RequestConfig getThrough(const std::list<std::string>& proxies) const {
        RequestConfig config;
        config.url = target.url();
        config.proxies = proxies;
        return config;
    }

    // Starts a request and waits until it hangs in `hanging`, the first proxy of its list.
    RecordingRequestPtr runIntoHanging(RequestConfig config) {
        config.proxies.push_front(hanging->url());
        RecordingRequestPtr made = run(config);
        hanging->awaitRequests(1);
        return made;
    }

    // The proxy in which a request hangs fails.
    void failHanging() { hanging.reset(); }

    static std::size_t attempts(const LogCapture& log, const RecordingRequestPtr& request) {
        return log.count('(' + std::to_string(request->id()) + ") HTTP: Outgoing");
    }

    static std::string closedUrl(const ClosedPort& port) { return "http://127.0.0.1:" + std::to_string(port.port()); }

    ScriptedServer target{Family::OtherIPv4};
    std::unique_ptr<CountingProxy> hanging = std::make_unique<CountingProxy>(Behaviour::Silent);
    CountingProxy good;
    ClosedPort closed;
};

INSTANTIATE_TEST_SUITE_P(Handlers, EngineFailoverTest, ::testing::Values(Handler::inline_call, Handler::posting),
                         [](const auto& tested) {
                             return tested.param == Handler::inline_call ? "inline" : "posting";
                         });

TEST_P(EngineFailoverTest, HangingProxyThatFailsIsFollowedByTheNext) {
    const auto request = runIntoHanging(getThrough({good.url()}));
    failHanging();
    request->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->body(), "arrived");
    EXPECT_EQ(request->getRedirectCount(), 2U);
    EXPECT_THAT(good.requests(), SizeIs(1));
}

TEST_P(EngineFailoverTest, TimeOutStartsAnewForEachAttempt) {
    RequestConfig config = getThrough({hanging->url(), hanging->url(), hanging->url()});
    config.timeout = std::chrono::milliseconds(300);
    const auto begin = std::chrono::steady_clock::now();
    const auto request = run(config);
    request->outcome.awaitCount(1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 3 * config.timeout);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 3: ")));
    EXPECT_EQ(request->getRedirectCount(), 3U);
}

TEST_P(EngineFailoverTest, TextOfTheFailureIsThatOfTheLastAttempt) {
    const CountingProxy refusing(Behaviour::Refuse);
    const auto request = run(getThrough({closedUrl(closed), refusing.url()}));
    request->outcome.awaitCount(1);
    EXPECT_THAT(request->outcome.events(), ElementsAre(::testing::HasSubstr("403")));
}

// --- the engine's setting changes meanwhile ---

TEST_P(EngineFailoverTest, ModeSwitchedOffMeanwhileSendsTheNextAttemptDirectly) {
    const LogCapture log("HttpClient", 1);
    const auto request = runIntoHanging(getThrough({good.url(), good.url()}));
    RequestConfig bypassing = getThrough({"http://any"});
    bypassing.proxy = Proxy::bypass_proxy;
    run(bypassing)->outcome.await("end");
    failHanging();
    request->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(attempts(log, request), 2U);
    EXPECT_EQ(good.connectionCount(), 0U);
}

TEST_P(EngineFailoverTest, ModeSwitchedOffMeanwhileEndsInOneFailureWhereTheTargetCanNotBeReached) {
    const LogCapture log("HttpClient", 1);
    RequestConfig config = getThrough({good.url(), good.url()});
    config.url = closed.url();
    config.url.replace(config.url.find("127.0.0.1"), 9, "127.0.0.2");
    const auto request = runIntoHanging(config);
    engine().setProxyConfig(Mode::Off, "", "", "");
    failHanging();
    request->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 5: ")));
    EXPECT_EQ(attempts(log, request), 2U);
}

TEST_P(EngineFailoverTest, ModeSwitchedToADeadProxyMeanwhileEndsInOneFailure) {
    const LogCapture log("HttpClient", 1);
    const auto request = runIntoHanging(getThrough({good.url(), good.url()}));
    engine().setProxyConfig(Mode::Manual, closedUrl(closed), "", "");
    failHanging();
    request->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 5: ")));
    EXPECT_EQ(attempts(log, request), 2U);
    EXPECT_EQ(good.connectionCount(), 0U);
}

TEST_P(EngineFailoverTest, DeadProxyOfTheEngineIsTriedOnceWhateverTheRequestsList) {
    engine().setProxyConfig(Mode::Manual, closedUrl(closed), "", "");
    const LogCapture log("HttpClient", 1);
    const auto request = run(getThrough({good.url(), good.url()}));
    request->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 5: ")));
    EXPECT_EQ(attempts(log, request), 1U);
    EXPECT_THAT(request->remainingProxies, SizeIs(2));
}

// --- pausing ---

TEST_P(EngineFailoverTest, RequestPausedMeanwhileStaysPaused) {
    const auto request = runIntoHanging(getThrough({good.url()}));
    request->pauseRequest();
    failHanging();
    request->hooks.await("header HTTP/1.1 200 OK");
    drain();
    EXPECT_EQ(request->body(), "");
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    request->resumeRequest();
    request->outcome.awaitCount(1);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->body(), "arrived");
}

// --- cancelling ---

TEST_P(EngineFailoverTest, RequestCancelledInItsSecondProxyIsDropped) {
    const auto request = runIntoHanging(getThrough({}));
    request->tryToCancelRequest();
    hanging->awaitNoConnection();
    drain();
    EXPECT_THAT(request->outcome.events(), IsEmpty());

    const auto later = run(getThrough({closedUrl(closed), hanging->url(), good.url()}));
    hanging->awaitRequests(2);
    later->tryToCancelRequest();
    hanging->awaitNoConnection();
    drain();
    EXPECT_THAT(later->outcome.events(), IsEmpty());
    EXPECT_EQ(good.connectionCount(), 0U);
    EXPECT_EQ(later.use_count(), 1);
}

TEST_P(EngineFailoverTest, RequestCancelledBetweenTwoProxiesIsDropped) {
    const auto request = std::make_shared<RecordingRequest>(getThrough({closedUrl(closed), good.url()}));
    EventLog set_ups;
    engine().onNewRequest([&set_ups, &request] {
        if (set_ups.count() == 1) request->tryToCancelRequest();
        set_ups.add("set-up");
    });
    request->runRequest();
    set_ups.await("set-up", 2);
    drain();
    EXPECT_EQ(request.use_count(), 1);
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    EXPECT_EQ(good.connectionCount(), 0U);
}

// --- a run after another ---

TEST_P(EngineFailoverTest, RunAfterACancellationBetweenTwoProxiesHasItsWholeList) {
    const auto request = std::make_shared<RecordingRequest>(getThrough({closedUrl(closed), good.url()}));
    EventLog set_ups;
    engine().onNewRequest([&set_ups, &request] {
        if (set_ups.count() == 1) {
            request->tryToCancelRequest();
            request->runRequest();
        }
        set_ups.add("set-up");
    });
    request->runRequest();
    request->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    engine().onNewRequest([] {});
}

// The same from the moment at which the engine begins to turn to the next proxy: the new run takes the attempt's place.
// Log lines tell where the engine is.
class EngineFailoverRunTest : public EngineFailoverTest {
 protected:
    void runAgainAt(const std::string& moment) {
        const auto request = EngineTest::request(getThrough({closedUrl(closed), good.url()}));
        std::atomic<int> runs{1};
        std::atomic<int> transfers{0};
        const TestHost host([&](ko::host::Settings& settings) {
            settings.log_levels = {{"HttpClient", 8}};
            settings.log_sink = [&](const ko::host::LogLine& line) {
                if (line.text.find("HTTP: Outgoing") != std::string_view::npos) ++transfers;
                if (line.text.find(moment) == std::string_view::npos || runs == 2) return;
                runs = 2;
                request->tryToCancelRequest();
                request->runRequest();
            };
        });
        request->runRequest();
        request->outcome.awaitCount(1);
        drain();
        drain();
        EXPECT_EQ(runs, 2);
        EXPECT_EQ(transfers, 2);
        EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
        EXPECT_THAT(target.requests(), SizeIs(1));
        EXPECT_EQ(request.use_count(), 1);
    }
};

INSTANTIATE_TEST_SUITE_P(Handlers, EngineFailoverRunTest, ::testing::Values(Handler::inline_call, Handler::posting),
                         [](const auto& tested) {
                             return tested.param == Handler::inline_call ? "inline" : "posting";
                         });

TEST_P(EngineFailoverRunTest, RunBeforeTheNextAttemptIsQueuedTakesItsPlace) {
    runAgainAt("Retry with another proxy");
}

TEST_P(EngineFailoverRunTest, RunWhileTheNextAttemptIsQueuedTakesItsPlace) {
    runAgainAt("Engine::addNewRequestNextProxy");
}

// Whoever cancels a request may start it again at once, while the engine is still busy with the first run.
TEST_P(EngineFailoverTest, RequestIsCancelledAndRunAgainAtAnyTime) {
    const auto request = EngineTest::request(getThrough({closedUrl(closed), good.url()}));
    for (int i = 0; i < 300; ++i) {
        request->runRequest();
        request->tryToCancelRequest();
    }
    drain();
    const std::size_t before = request->outcome.count();
    request->runRequest();
    request->outcome.awaitCount(before + 1);
    EXPECT_EQ(request->outcome.events().back(), "end");
}

// --- the engine ends ---

TEST_P(EngineFailoverTest, EngineEndsWhileASecondProxyHangs) {
    const auto request = run(getThrough({closedUrl(closed), hanging->url(), good.url()}));
    hanging->awaitRequests(1);
    stopEngine();
    executor.run([] {});
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    EXPECT_EQ(request.use_count(), 1);
    hanging->awaitNoConnection();
}

TEST_P(EngineFailoverTest, EngineEndsBetweenTwoProxies) {
    const LogCapture log("HttpClient", 8);
    const auto request = std::make_shared<RecordingRequest>(getThrough({closedUrl(closed), closedUrl(closed)}));
    // The end is queued while the first attempt is set up, so before the second one is.
    engine().onNewRequest([running = &engine()] { running->requestTermination(); });
    request->runRequest();
    log.await("Exiting thread loop");
    stopEngine();
    executor.run([] {});
    EXPECT_LE(request->outcome.count(), 1U);
    EXPECT_EQ(request.use_count(), 1);
}

TEST_P(EngineFailoverTest, EngineEndsAtAnyTimeWhileManyFailOver) {
    std::list<std::string> dead;
    for (int i = 0; i < 20; ++i) dead.push_back(closedUrl(closed));
    for (int round = 0; round < 20; ++round) {
        std::vector<RecordingRequestPtr> requests;
        for (int i = 0; i < 10; ++i) requests.push_back(run(getThrough(dead)));
        for (int turn = 0; turn < round; ++turn) onEngineThread([] {});
        stopEngine();
        executor.run([] {});
        for (const RecordingRequestPtr& request : requests) {
            EXPECT_LE(request->outcome.count(), 1U);
            EXPECT_EQ(request.use_count(), 1);
        }
        startEngine(GetParam()).setProxyConfig(Mode::PACUrl, "", "", "");
    }
}

}  // namespace
}  // namespace kel::http::test
