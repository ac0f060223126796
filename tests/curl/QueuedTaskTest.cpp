// SPDX-License-Identifier: MIT
#include "kel-http/curl/QueuedTask.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <utility>

namespace kel::http::test {
namespace {

TEST(QueuedTaskTest, CallsWhatItHoldsAndLetsGoOfItOnce) {
    int calls = 0;
    const auto held = std::make_shared<int>(1);
    {
        QueuedTask task([&calls, owned = held] { calls += *owned; });
        EXPECT_EQ(held.use_count(), 2);
        QueuedTask moved(std::move(task));
        EXPECT_EQ(held.use_count(), 2);
        moved();
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(QueuedTaskTest, TakesWhatCanNotBeCopiedAndWhatFillsIt) {
    struct Large {
        std::array<void*, QueuedTask::room / sizeof(void*)> places{};
        void operator()() { *static_cast<bool*>(places.back()) = true; }
    };
    bool called = false;
    Large large;
    large.places.back() = &called;
    QueuedTask task(large);
    task();
    EXPECT_TRUE(called);

    int seen = 0;
    QueuedTask owning([number = std::make_unique<int>(7), &seen]() mutable { seen = *std::exchange(number, nullptr); });
    owning();
    EXPECT_EQ(seen, 7);
}

TEST(QueuedTaskTest, ItsTargetIsFoundByItsType) {
    struct Counter {
        int count = 0;
        void operator()() { ++count; }
    };
    QueuedTask task{Counter{5}};
    ASSERT_NE(task.target<Counter>(), nullptr);
    task();
    EXPECT_EQ(task.target<Counter>()->count, 6);
    EXPECT_EQ(task.target<std::function<void()>>(), nullptr);
}

}  // namespace
}  // namespace kel::http::test
