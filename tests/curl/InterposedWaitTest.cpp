// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <cerrno>
#include <csignal>

#include "curl/Interposed.h"
#include "curl/LineMatcher.h"
#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::Ge;
using ::testing::SizeIs;

class InterposedWaitTest : public EngineTest {
 protected:
    InterposedWaitTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
    }
    ~InterposedWaitTest() override { stopEngine(); }

    // Waits until the engine has waited as long as `call` says. Each task leads it to a new wait.
    void awaitWait(const std::string& call) {
        const std::size_t before = interposed.calls().count(call);
        onEngineThread([] {});
        interposed.calls().await(call, before + 1);
    }

    Interposed interposed;
};

TEST_F(InterposedWaitTest, ThreadIsAskedForWithItsStackAndItsSchedulerOnce) {
    startEngine();
    for (const char* const wish : {"stack 262144", "policy 2", "priority 0"}) {
        EXPECT_EQ(interposed.calls().count(wish), 1U) << wish;
    }
}

TEST_F(InterposedWaitTest, WithoutATransferTheEngineWaitsHalfAMinute) {
    startEngine();
    awaitWait("select 30 0");
}

TEST_F(InterposedWaitTest, TimerDecidesHowLongTheEngineWaits) {
    startEngine();
    interposed.setTimer(-1);
    awaitWait("select 30 0");
    interposed.setTimer(5);
    awaitWait("select 0 5000");
    interposed.setTimer(60999);
    awaitWait("select 60 999000");
    interposed.setTimer(61000);
    awaitWait("select 60 0");
    interposed.setTimer(70000);
    awaitWait("select 60 0");
}

TEST_F(InterposedWaitTest, PauseBetweenTwoTasksIsOneWait) {
    startEngine();
    onEngineThread([] {});
    interposed.calls().await("select 30 0");
    const std::size_t writes = interposed.calls().count("eventfd_write");
    onEngineThread([] {});
    EXPECT_EQ(interposed.calls().count("eventfd_write"), writes + 1);
}

TEST_F(InterposedWaitTest, OneReadServesAllWritesOfABatch) {
    startEngine();
    awaitWait("select 30 0");
    std::size_t reads = 0;
    {
        const EngineHold hold(engine());
        reads = interposed.calls().count("eventfd_read");
        for (int i = 0; i < 100; ++i) engine().queueRequest([] {});
    }
    onEngineThread([] {});
    onEngineThread([] {});
    EXPECT_LE(interposed.calls().count("eventfd_read"), reads + 4);
}

TEST_F(InterposedWaitTest, InterruptedWaitsAreTolerated) {
    for (const int error : {EINTR, EBADF, ENOMEM}) {
        interposed.failSelects(20, error);
        startEngine();
        run(get())->outcome.await("end");
        stopEngine();
    }
}

// After an error the sets say nothing: to read the descriptor then could block for good.
TEST_F(InterposedWaitTest, DescriptorIsNotReadAfterAnInterruptedWait) {
    startEngine();
    awaitWait("select 30 0");
    interposed.setTimer(0);
    onEngineThread([] {});
    const auto awaitMoreSelects = [this](std::size_t count) {
        interposed.calls().await("select 0 0", interposed.calls().count("select 0 0") + count);
    };
    // The last wake-up has been read by then.
    awaitMoreSelects(3);
    const std::size_t reads = interposed.calls().count("eventfd_read");
    interposed.failSelects(50, EINTR);
    awaitMoreSelects(100);
    EXPECT_EQ(interposed.calls().count("eventfd_read"), reads);
}

TEST_F(InterposedWaitTest, SignalOnTheEngineThreadIsTolerated) {
    struct sigaction ignoring {};
    struct sigaction before {};
    ignoring.sa_handler = [](int) {};
    sigaction(SIGUSR1, &ignoring, &before);
    startEngine();
    pthread_t thread{};
    onEngineThread([&thread] { thread = pthread_self(); });
    for (int i = 0; i < 10; ++i) {
        pthread_kill(thread, SIGUSR1);
        run(get())->outcome.await("end");
    }
    stopEngine();
    sigaction(SIGUSR1, &before, nullptr);
}

// --- the wake-up descriptor ---

TEST_F(InterposedWaitTest, FailedWakeUpIsLoggedAndTheTaskRunsAllTheSame) {
    const LogCapture log(0);
    startEngine();
    interposed.failEventfdWrites(true);
    onEngineThread([] {});
    interposed.failEventfdWrites(false);
    const std::vector<Interposed::RawLine> lines = interposed.rawLines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].severity, 2);
    EXPECT_EQ(lines[0].channel, 0);
    EXPECT_EQ(lines[0].text, "CurlEngine: Error writing eventfd\n");
    EXPECT_EQ(lines[0].length, 34U);
    EXPECT_THAT(log.lines(), Contains(IsLine("tovanlog", 2, "CurlEngine: Error writing eventfd")));
}

TEST_F(InterposedWaitTest, FailedReadOfTheWakeUpIsLoggedAndTheLoopGoesOn) {
    startEngine();
    interposed.failEventfdReads(true);
    onEngineThread([] {});
    onEngineThread([] {});
    interposed.failEventfdReads(false);
    onEngineThread([] {});
    const std::vector<Interposed::RawLine> lines = interposed.rawLines();
    ASSERT_THAT(lines, SizeIs(Ge(1U)));
    for (const Interposed::RawLine& line : lines) {
        EXPECT_EQ(line.severity, 2);
        EXPECT_EQ(line.channel, 0);
        EXPECT_EQ(line.text, "CurlEngine: Error reading eventfd\n");
        EXPECT_EQ(line.length, 34U);
    }
    run(get())->outcome.await("end");
}

// --- what a request queues ---

TEST_F(InterposedWaitTest, EachCallOfARequestQueuesOneTaskAtMost) {
    startEngine();
    const auto request = this->request(get());
    const auto queued = [this](const std::function<void()>& call) {
        const std::size_t before = interposed.calls().count("eventfd_write");
        call();
        return interposed.calls().count("eventfd_write") - before;
    };
    EXPECT_EQ(queued([&] { request->resumeRequest(); }), 0U);
    EXPECT_EQ(queued([&] { request->pauseRequest(); }), 1U);
    EXPECT_EQ(queued([&] { request->pauseRequest(); }), 0U);
    EXPECT_EQ(queued([&] { request->resumeRequest(); }), 1U);
    EXPECT_EQ(queued([&] { request->resumeRequest(); }), 0U);
    EXPECT_EQ(queued([&] { request->tryToCancelRequest(); }), 1U);
    EXPECT_EQ(queued([&] { request->runRequest(); }), 1U);
    EXPECT_EQ(queued([&] { engine().requestTermination(); }), 1U);
}

}  // namespace
}  // namespace kel::http::test
