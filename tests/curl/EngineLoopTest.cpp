// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <array>
#include <csignal>
#include <map>
#include <stdexcept>
#include <thread>

#include "curl/LineMatcher.h"
#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"
#include "support/VirtualPlace.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

class EngineLoopTest : public EngineTest {
 protected:
    EngineLoopTest() { startEngine(); }

    // A task that leaves a line between the engine's own.
    void queueMark(const std::string& text) {
        engine().queueRequest([text] { logging::getLogger("HttpClient", 0)->write(1, text); });
    }

    // A task whose run and whose end can be seen.
    std::weak_ptr<int> queueWatched(EventLog& log, const std::string& name) {
        auto owned = std::make_shared<int>();
        const std::weak_ptr<int> watch = owned;
        engine().queueRequest([&log, name, owned] { log.add(name); });
        return watch;
    }
};

TEST_F(EngineLoopTest, TasksOfManyThreadsRunOnceEachAndInTheirOrder) {
    constexpr int threads = 8;
    constexpr int each = 2000;
    std::map<int, std::vector<int>> ran;  // engine thread
    std::vector<std::thread> queueing;
    for (int number = 0; number < threads; ++number) {
        queueing.emplace_back([this, &ran, number] {
            for (int task = 0; task < each; ++task) {
                engine().queueRequest([&ran, number, task] { ran[number].push_back(task); });
            }
        });
    }
    for (std::thread& thread : queueing) thread.join();
    drain();
    std::vector<int> expected;
    for (int task = 0; task < each; ++task) expected.push_back(task);
    ASSERT_THAT(ran, SizeIs(threads));
    for (const auto& [number, tasks] : ran) EXPECT_EQ(tasks, expected) << number;
}

TEST_F(EngineLoopTest, TasksRunOnTheEngineThread) {
    ko::thread_id first = ko::invalid_thread_id;
    ko::thread_id second = ko::invalid_thread_id;
    onEngineThread([&first] { first = ko::this_thread::get_id(); });
    onEngineThread([&second] { second = ko::this_thread::get_id(); });
    EXPECT_EQ(first, second);
    EXPECT_NE(first, ko::this_thread::get_id());
}

TEST_F(EngineLoopTest, TaskQueuedByATaskRunsInTheNextPass) {
    const LogCapture log("HttpClient", 8);
    {
        const EngineHold hold(engine());
        engine().queueRequest([this] { queueMark("by a task"); });
        queueMark("behind");
    }
    log.await("by a task");
    const std::vector<std::string> texts = log.texts();
    const auto behind = std::find(texts.begin(), texts.end(), "behind");
    const auto by_a_task = std::find(texts.begin(), texts.end(), "by a task");
    EXPECT_EQ(std::count(behind, by_a_task, "Engine::processPendingRequests"), 1);
}

TEST_F(EngineLoopTest, OnePassIsLoggedStepByStep) {
    const LogCapture log("HttpClient", 8);
    queueMark("task");
    engine().queueRequest([this] { queueMark("next pass"); });
    log.await("next pass");
    std::vector<CapturedLine> lines = log.lines();
    const auto ends = [](const CapturedLine& line) { return line.text == "task"; };
    lines.erase(lines.begin(), std::find_if(lines.begin(), lines.end(), ends));
    const auto from = std::find_if(lines.begin(), lines.end(),
                                   [](const CapturedLine& line) { return line.text == "Engine::doCurlProcessing"; });
    ASSERT_GE(lines.end() - from, 4);
    lines = {from, from + 4};
    EXPECT_THAT(
        lines,
        ElementsAre(EngineLine(8, "Engine::doCurlProcessing"), EngineLine(8, "Engine::doCurlProcessing: waking up"),
                    EngineLine(8, "Engine::processCompletedTasks"), EngineLine(8, "Engine::processPendingRequests")));
}

TEST_F(EngineLoopTest, LoopSaysNothingBelowItsLevel) {
    const LogCapture log("HttpClient", 7);
    drain();
    EXPECT_THAT(log.lines(), SizeIs(0));
}

TEST_F(EngineLoopTest, ThrowingTaskIsLoggedAndTheNextOneRuns) {
    const LogCapture log("HttpClient", 1);
    EventLog ran;
    {
        const EngineHold hold(engine());
        engine().queueRequest([] { throw std::runtime_error("no room"); });
        engine().queueRequest([] { throw 42; });
        engine().queueRequest([&ran] { ran.add("next"); });
    }
    ran.await("next");
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, "Engine::processPendingRequests: A queued task failed: no room"),
                                         EngineLine(1, "Engine::processPendingRequests: A queued task failed")));
}

TEST_F(EngineLoopTest, TaskIsDestroyedBeforeTheNextOneRuns) {
    std::vector<bool> expired;
    {
        const EngineHold hold(engine());
        std::weak_ptr<int> before;
        for (int i = 0; i < 3; ++i) {
            auto owned = std::make_shared<int>();
            engine().queueRequest([&expired, before, owned] { expired.push_back(before.expired()); });
            before = owned;
        }
    }
    drain();
    EXPECT_THAT(expired, ::testing::AllOf(SizeIs(3), Each(true)));
}

TEST_F(EngineLoopTest, TerminationRunsItsWholeBatchAndNothingLater) {
    const LogCapture log("HttpClient", 8);
    EventLog ran;
    {
        const EngineHold hold(engine());
        queueWatched(ran, "before");
        engine().requestTermination();
        queueWatched(ran, "behind");
        engine().queueRequest([this, &ran] { queueWatched(ran, "next pass"); });
    }
    log.await("Exiting thread loop");
    const std::weak_ptr<int> late = queueWatched(ran, "late");
    stopEngine();
    EXPECT_THAT(ran.events(), ElementsAre("before", "behind"));
    EXPECT_TRUE(late.expired());

    std::vector<CapturedLine> lines = log.lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_THAT(
        std::vector<CapturedLine>(lines.end() - 2, lines.end()),
        ElementsAre(EngineLine(8, "Engine::runTasks"), EngineLine(8, "Engine::thread_loop: Exiting thread loop")));
}

TEST_F(EngineLoopTest, QueuedTasksRunBeforeTheEngineEnds) {
    EventLog ran;
    {
        const EngineHold hold(engine());
        for (int i = 0; i < 100; ++i) queueWatched(ran, "task");
    }
    stopEngine();
    EXPECT_EQ(ran.count("task"), 100U);
}

TEST_F(EngineLoopTest, AnyThreadMayEndTheEngine) {
    std::thread([this] { stopEngine(); }).join();
    EXPECT_FALSE(Engine::hasEngine());
}

TEST_F(EngineLoopTest, EngineIsKnownWhileItLives) {
    EXPECT_TRUE(Engine::hasEngine());
    EXPECT_EQ(Engine::getEngine(), &engine());
    stopEngine();
    EXPECT_FALSE(Engine::hasEngine());
}

TEST_F(EngineLoopTest, AnotherEngineServesAfterTheFirstIsGone) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    run(get())->outcome.await("end");
    stopEngine();
    startEngine();
    run(get())->outcome.await("end");
}

TEST_F(EngineLoopTest, EngineThreadHasItsNameAndBlocksBrokenPipeOnly) {
    std::array<char, 16> name{};
    sigset_t blocked;
    onEngineThread([&] {
        pthread_getname_np(pthread_self(), name.data(), name.size());
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    });
    EXPECT_STREQ(name.data(), "CurlEngine");
    for (const int signal : {SIGPIPE, SIGTERM, SIGINT, SIGUSR1, SIGCHLD}) {
        EXPECT_EQ(sigismember(&blocked, signal), signal == SIGPIPE ? 1 : 0) << signal;
    }
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGPIPE), 0);
}

TEST_F(EngineLoopTest, EngineThreadHasAStackOf256KiB) {
    std::size_t bytes = 0;
    onEngineThread([&bytes] {
        pthread_attr_t own;
        pthread_getattr_np(pthread_self(), &own);
        pthread_attr_getstacksize(&own, &bytes);
        pthread_attr_destroy(&own);
    });
    // The system may take a guard page or two from it, a sanitizer adds to it.
    EXPECT_GE(bytes, 262144U - 65536U);
    EXPECT_LE(bytes, 1048576U);
}

TEST(CreateEngineTaskTest, BodyRunsOnAThreadOfThatName) {
    std::array<char, 16> name{};
    ko::thread thread = createEngineTask([&name] { pthread_getname_np(pthread_self(), name.data(), name.size()); });
    thread.join();
    EXPECT_STREQ(name.data(), "CurlEngine");
}

TEST_F(EngineLoopTest, NewRequestHandlerRunsOnTheEngineThreadBeforeTheSetUp) {
    const LogCapture log("HttpClient", 1);
    ko::thread_id engine_thread = ko::invalid_thread_id;
    ko::thread_id handler_thread = ko::invalid_thread_id;
    std::size_t lines_before = 1;
    onEngineThread([&engine_thread] { engine_thread = ko::this_thread::get_id(); });
    engine().onNewRequest([&] {
        handler_thread = ko::this_thread::get_id();
        lines_before = log.lines().size();
    });
    server.enqueue(Reply(200));
    run(get())->outcome.await("end");
    EXPECT_EQ(handler_thread, engine_thread);
    EXPECT_EQ(lines_before, 0U);
    EXPECT_THAT(log.texts(), Contains(::testing::HasSubstr("HTTP: Outgoing")));
}

TEST_F(EngineLoopTest, NewRequestHandlerIsReplacedAndDestroyed) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    EventLog called;
    auto owned = std::make_shared<int>();
    const std::weak_ptr<int> watch = owned;
    engine().onNewRequest([&called, owned] { called.add("first"); });
    owned.reset();
    run(get())->outcome.await("end");
    engine().onNewRequest([&called] { called.add("second"); });
    EXPECT_TRUE(watch.expired());
    run(get())->outcome.await("end");
    EXPECT_THAT(called.events(), ElementsAre("first", "second"));
}

TEST_F(EngineLoopTest, NewRequestHandlerMayReplaceItself) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    EventLog called;
    engine().onNewRequest([this, &called] {
        engine().onNewRequest([&called] { called.add("successor"); });
        called.add("first");
    });
    run(get())->outcome.await("end");
    run(get())->outcome.await("end");
    EXPECT_THAT(called.events(), ElementsAre("first", "successor"));
}

TEST_F(EngineLoopTest, ThrowingNewRequestHandlerFailsThatRequestOnly) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    const LogCapture log("HttpClient", 1);
    engine().onNewRequest([] { throw std::runtime_error("not today"); });
    const auto failed = run(get());
    failed->outcome.await("failure 2: not today");
    EXPECT_EQ(failed->getResponseCode(), 0U);
    EXPECT_THAT(log.lines(),
                ElementsAre(EngineLine(1, "(" + std::to_string(failed->id()) +
                                              ") Engine::addTask: The request can not be sent: not today")));
    engine().onNewRequest([] {});
    run(get())->outcome.await("end");
    EXPECT_THAT(failed->outcome.events(), SizeIs(1));
}

TEST_F(EngineLoopTest, NewRequestHandlerThatThrowsAnythingFailsThatRequest) {
    engine().onNewRequest([] { throw 42; });
    const auto failed = run(get());
    failed->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(failed->outcome.events(), ElementsAre("failure 2: Unknown error"));
}

// An engine that sets TLS up in its own way.
class DerivedEngine : public Engine {
 public:
    using Engine::Engine;
    ~DerivedEngine() override { stop(); }

    void addTlsConfig(void* easy, std::shared_ptr<Request> request) override {
        seen.add(std::to_string(request->id()) + (lookupRequest(easy) == request ? " is active" : " is unknown"));
        Engine::addTlsConfig(easy, request);
    }
    virtual void more() {}

    EventLog seen;
};

TEST(DerivedEngineTest, TlsSetUpIsTheOneVirtualFunctionBehindTheDestructor) {
    EXPECT_EQ(virtualPlace(&Engine::addTlsConfig), 2U);
    EXPECT_EQ(virtualPlace(&DerivedEngine::more), 3U);
}

TEST(DerivedEngineTest, DerivedEngineReplacesTheTlsSetUp) {
    ScriptedServer server;
    server.enqueue(Reply(200));
    RequestConfig config;
    config.url = server.url();
    const auto request = std::make_shared<RecordingRequest>(config);
    DerivedEngine engine([](const std::function<void()>& completion) { completion(); });
    request->runRequest();
    request->outcome.await("end");
    EXPECT_THAT(engine.seen.events(), ElementsAre(std::to_string(request->id()) + " is active"));
}

}  // namespace
}  // namespace kel::http::test
