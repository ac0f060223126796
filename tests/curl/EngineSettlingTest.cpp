// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineSettling.h"

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(EngineSettlingTest, WhoHasBeenReachedIsReleased) {
    EngineSettling settling;
    const std::uint32_t first = settling.take();
    const std::uint32_t second = settling.take();
    settling.reach(first);
    settling.await(first);
    auto later = std::async(std::launch::async, [&] { settling.await(second); });
    EXPECT_EQ(later.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    settling.reach(settling.tickets());
    later.get();
}

TEST(EngineSettlingTest, TheEndReleasesEverybody) {
    EngineSettling settling;
    std::vector<std::future<void>> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(std::async(std::launch::async, [&settling] { settling.await(settling.take()); }));
    }
    settling.end();
    for (auto& one : waiting) one.get();
    settling.await(settling.take());
}

class EngineSettleTest : public EngineTest {};

TEST_F(EngineSettleTest, WhatWasQueuedBeforeHasRun) {
    startEngine();
    std::atomic<int> runs{0};
    for (int i = 0; i < 100; ++i) engine().queueRequest([&runs] { ++runs; });
    engine().settle();
    EXPECT_EQ(runs, 100);
}

TEST_F(EngineSettleTest, WhatWasCancelledBeforeIsHeldNoMore) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("first half").stallBeforeEnd(); });
    startEngine();
    for (const bool running : {false, true}) {
        auto request = run(get());
        if (running) request->hooks.await("header ");
        request->tryToCancelRequest();
        const std::weak_ptr<Request> held = request;
        request.reset();
        engine().settle();
        EXPECT_TRUE(held.expired()) << running;
    }
}

TEST_F(EngineSettleTest, SeveralThreadsMayWait) {
    startEngine();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int round = 0; round < 50; ++round) engine().settle();
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(EngineSettleTest, ItReturnsAtOnceWhenTheLoopHasEnded) {
    startEngine();
    engine().requestTermination();
    engine().settle();
    engine().settle();
}

// The engine's thread would wait for itself.
TEST(EngineSettleDeathTest, TheEngineThreadMayNotWait) {
    EXPECT_DEATH(
        {
            Engine engine([](const std::function<void()>& completion) { completion(); });
            engine.queueRequest([&engine] { engine.settle(); });
            engine.requestTermination();
            for (;;) std::this_thread::yield();
        },
        "engineThreadId != ko::this_thread::get_id\\(\\)");
}

}  // namespace
}  // namespace kel::http::test
