// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineDeadlines.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "fixture/EngineTest.h"
#include "kel-http/curl/Outcome.h"
#include "kel-http/curl/RequestImpl.h"
#include "support/Emulator.h"
#include "support/Instruments.h"
#include "support/SilentListener.h"

namespace kel::http::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr milliseconds limit(600);

// What takes many times the instructions can not be as quick.
milliseconds margin() {
    return milliseconds(underSanitizer() || underEmulator() ? 150 : 50);
}

// Other processes may hold ours up at any time; what is late by itself is late each time.
bool isPunctualOnce(const std::function<milliseconds()>& lateness) {
    std::array<milliseconds::rep, 6> seen{};
    for (milliseconds::rep& late : seen) {
        late = lateness().count();
        EXPECT_GE(late, 0);
        if (late <= margin().count()) return true;
    }
    ADD_FAILURE() << "late by " << testing::PrintToString(seen) << " ms";
    return false;
}

class EngineDeadlinesTest : public EngineTest {
 protected:
    EngineDeadlinesTest() { startEngine(); }

    static RequestConfig limited(RequestConfig config) {
        config.timeout = limit;
        return config;
    }

    // How long after its limit the request that `start` begins ends with a time-out.
    static milliseconds latenessOf(const std::function<RecordingRequestPtr()>& start, int attempts = 1) {
        const auto begin = steady_clock::now();
        const RecordingRequestPtr request = start();
        request->outcome.awaitCount(1);
        const auto end = steady_clock::now();
        EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 3: ")));
        return std::chrono::duration_cast<milliseconds>(end - begin - attempts * limit);
    }

    // A request to nobody is the clock: it ends when a third of the others' limit is over. What libcurl plans for the first
    // 200 ms of another connection then, and over which it forgets the limit, comes before that.
    void awaitPartOfTheLimit() const {
        RequestConfig config;
        config.url = nobody.url();
        config.timeout = limit / 3;
        run(config)->outcome.awaitCount(1);
    }

    const SilentListener nobody;
};

TEST_F(EngineDeadlinesTest, AServerThatDoesNotAnswerIsLeftInTime) {
    RequestConfig config;
    config.url = nobody.url();
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf([&] { return run(limited(config)); }); }));
}

TEST_F(EngineDeadlinesTest, AnAddressThatDoesNotAnswerIsLeftInTime) {
    const SilentListener full(SilentListener::Connects::Hang);
    RequestConfig config;
    config.url = full.url();
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf([&] { return run(limited(config)); }); }));
}

TEST_F(EngineDeadlinesTest, RedirectsDoNotMoveTheLimit) {
    ScriptedServer second;
    const auto begin = [&] {
        const std::size_t requests = second.requests().size();
        server.enqueue(Reply::redirect(second.url()).stallBeforeHeaders());
        second.enqueue(Reply::redirect(nobody.url()));
        const RecordingRequestPtr request = run(limited(get()));
        awaitPartOfTheLimit();
        server.release();
        second.awaitRequests(requests + 1);
        return request;
    };
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf(begin); }));
}

// libcurl sends the request once more, on another connection.
TEST_F(EngineDeadlinesTest, ARepetitionOnAnotherConnectionDoesNotMoveTheLimit) {
    const auto begin = [this] {
        server.enqueue(Reply(200));
        run(get())->outcome.await("end");
        const std::size_t requests = server.requests().size();
        server.enqueue(Reply(200).stallBeforeHeaders());
        server.enqueue(Reply(200).stallBeforeHeaders());
        const RecordingRequestPtr request = run(limited(get()));
        server.awaitRequests(requests + 1);
        awaitPartOfTheLimit();
        server.closeConnections();
        server.awaitRequests(requests + 2);
        return request;
    };
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf(begin); }));
}

TEST_F(EngineDeadlinesTest, EachOfThreeProxiesIsLeftInTime) {
    engine().setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    RequestConfig config;
    config.url = "http://127.0.0.2/";
    config.proxies = {nobody.url(), nobody.url(), nobody.url()};
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf([&] { return run(limited(config)); }, 3); }));
}

TEST_F(EngineDeadlinesTest, APauseDoesNotMoveTheLimit) {
    const auto begin = [this] {
        server.enqueue(Reply(200).body("first half").stallBeforeEnd());
        const RecordingRequestPtr request = run(limited(get()));
        request->hooks.await("data 10");
        request->pauseRequest();
        server.release();
        return request;
    };
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf(begin); }));
}

// A request that begins anew whenever it has ended, until it is told to stop.
class EndlessRequest : public RecordingRequest {
 public:
    EndlessRequest(const RequestConfig& request_config, const std::atomic<bool>& stops)
        : RecordingRequest(request_config), stops_(stops) {}

    void notifyDataEnd() override {
        if (stops_) return RecordingRequest::notifyDataEnd();
        runRequest();
    }

 private:
    const std::atomic<bool>& stops_;
};

TEST_F(EngineDeadlinesTest, TwoHundredBusyOthersDoNotMoveTheLimit) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
    std::atomic<bool> stops{false};
    std::vector<std::shared_ptr<EndlessRequest>> others;
    while (others.size() < 200) {
        others.push_back(std::make_shared<EndlessRequest>(get(), stops));
        others.back()->runRequest();
    }
    RequestConfig config;
    config.url = nobody.url();
    EXPECT_TRUE(isPunctualOnce([&] { return latenessOf([&] { return run(limited(config)); }); }));
    stops = true;
    for (const auto& other : others) other->outcome.await("end");
}

// --- the class itself, on transfers that libcurl is never asked to drive ---

class DeadlinesAloneTest : public ::testing::Test {
 protected:
    ~DeadlinesAloneTest() override { transfers.close(); }

    RecordingRequestPtr begin(milliseconds timeout) {
        auto request = std::make_shared<RecordingRequest>();
        stateOf(*request).beginRun(++stateOf(*request).lastRun);
        request->config.timeout = timeout;
        const TaskPtr task = transfers.enter(request);
        task->outcome = Outcome::closureFor(request, task->run);
        transfers.begin(task->easy);
        deadlines.begin(*task);
        return request;
    }

    static std::chrono::hours untilNext(EngineDeadlines& deadlines) {
        return std::chrono::round<std::chrono::hours>(*deadlines.next() - steady_clock::now());
    }

    logging::Logger& logger = *logging::getLogger("HttpClient", 0);
    EngineTransfers transfers;
    EngineProxy proxy{&steady_clock::now, logger};
    EngineTls tls{logger};
    EngineCompletion completion{
        transfers, proxy, tls, [](const auto& outcome) { outcome(); }, [](const auto&, auto&) {}, logger};
    EngineDeadlines deadlines{transfers, completion};
};

TEST_F(DeadlinesAloneTest, WithoutATimeOutNothingWakesTheEngine) {
    EXPECT_FALSE(deadlines.next());
    begin(milliseconds(0));
    begin(milliseconds(-1));
    begin(milliseconds::min());
    EXPECT_FALSE(deadlines.next());
    deadlines.endOverdue();
    EXPECT_FALSE(transfers.empty());
}

TEST_F(DeadlinesAloneTest, TheEarliestDeadlineComesFirst) {
    begin(std::chrono::hours(3));
    begin(std::chrono::hours(2));
    begin(std::chrono::hours(4));
    begin(milliseconds::max());
    EXPECT_EQ(untilNext(deadlines), std::chrono::hours(2));
}

TEST_F(DeadlinesAloneTest, WhatIsOverdueEndsAndTheNextOneIsWaitedFor) {
    const auto first = begin(milliseconds(1));
    const auto second = begin(milliseconds(1));
    const auto later = begin(std::chrono::hours(2));
    for (const auto begun = steady_clock::now(); steady_clock::now() <= begun + milliseconds(2);) {
    }
    deadlines.endOverdue();
    for (const auto& ended : {first, second}) {
        EXPECT_THAT(ended->outcome.events(),
                    ElementsAre(testing::MatchesRegex("failure 3: Connection timed out after [0-9]+ milliseconds")));
    }
    EXPECT_EQ(later->outcome.count(), 0U);
    EXPECT_EQ(untilNext(deadlines), std::chrono::hours(2));
}

TEST_F(DeadlinesAloneTest, NothingWakesTheEngineForATransferThatHasGone) {
    transfers.remove(*transfers.getActiveTask(begin(std::chrono::hours(1))));
    EXPECT_FALSE(deadlines.next());
}

TEST(DeadlineTest, AVeryLongTimeOutNeverEnds) {
    const auto start = steady_clock::now();
    EXPECT_EQ(EngineDeadlines::deadline(start, milliseconds(5)), start + milliseconds(5));
    EXPECT_EQ(EngineDeadlines::deadline(start, milliseconds::max()), steady_clock::time_point::max());
}

}  // namespace
}  // namespace kel::http::test
