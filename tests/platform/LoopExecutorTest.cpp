// SPDX-License-Identifier: MIT
#include "ko/loop_executor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "Waiting.h"
#include "ko/thread.h"
#include "support/AllocationFailure.h"
#include "support/Instruments.h"

namespace {

constexpr int tag = 4035;

TEST(LoopExecutorTest, DescriptorIsReadableOnlyWhileTasksWait) {
    ko::loop_executor executor;
    EXPECT_FALSE(is_readable(executor.descriptor()));
    executor.post([] {}, tag);
    executor.post([] {}, tag);
    EXPECT_TRUE(is_readable(executor.descriptor()));
    EXPECT_EQ(2U, executor.drain());
    EXPECT_FALSE(is_readable(executor.descriptor()));
    executor.post([] {}, tag);
    EXPECT_TRUE(is_readable(executor.descriptor()));
}

TEST(LoopExecutorTest, DrainingAnEmptyQueueReturnsAtOnce) {
    ko::loop_executor executor;
    EXPECT_EQ(0U, executor.drain());
    EXPECT_FALSE(is_readable(executor.descriptor()));
}

TEST(LoopExecutorTest, PostTakesNoMemoryForSixtyFourTasks) {
    using kel::http::test::FailAllocation;
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    ko::loop_executor executor;
    for (int round = 0; round < 3; ++round) {
        {
            const FailAllocation failure(1, FailAllocation::Extent::all);
            for (int i = 0; i < 64; ++i) executor.post([] {}, tag);
        }
        EXPECT_EQ(64U, executor.drain());
    }
}

TEST(LoopExecutorTest, PostThatFindsNoMemoryQueuesNothing) {
    using kel::http::test::FailAllocation;
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    ko::loop_executor executor;
    for (int i = 0; i < 64; ++i) executor.post([] {}, tag);
    bool ran = false;
    {
        const FailAllocation failure(1);
        EXPECT_THROW(executor.post([&ran] { ran = true; }, tag), std::bad_alloc);
    }
    EXPECT_EQ(64U, executor.drain());
    EXPECT_FALSE(ran);
    executor.post([&ran] { ran = true; }, tag);
    EXPECT_EQ(1U, executor.drain());
    EXPECT_TRUE(ran);
}

TEST(LoopExecutorTest, PostRunsNothing) {
    ko::loop_executor executor;
    bool ran = false;
    executor.post([&ran] { ran = true; }, tag);
    EXPECT_FALSE(ran);
    executor.drain();
    EXPECT_TRUE(ran);
}

TEST(LoopExecutorTest, TasksRunInOrderOnTheDrainingThread) {
    ko::loop_executor executor;
    std::vector<int> order;
    ko::thread_id id = ko::invalid_thread_id;
    for (int i = 0; i < 5; ++i) executor.post([&order, i] { order.push_back(i); }, tag);
    executor.post([&id] { id = ko::this_thread::get_id(); }, tag);
    EXPECT_EQ(6U, executor.drain());
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), order);
    EXPECT_EQ(ko::this_thread::get_id(), id);
}

TEST(LoopExecutorTest, WhatATaskPostsWaitsForTheNextDrain) {
    ko::loop_executor executor;
    int ran = 0;
    executor.post(
        [&] {
            ++ran;
            executor.post([&ran] { ++ran; }, tag);
        },
        tag);
    EXPECT_EQ(1U, executor.drain());
    EXPECT_EQ(1, ran);
    EXPECT_TRUE(is_readable(executor.descriptor()));
    EXPECT_EQ(1U, executor.drain());
    EXPECT_EQ(2, ran);
    EXPECT_FALSE(is_readable(executor.descriptor()));
}

TEST(LoopExecutorTest, TaskMayDrainItself) {
    ko::loop_executor executor;
    std::vector<int> order;
    executor.post(
        [&] {
            executor.post([&order] { order.push_back(1); }, tag);
            EXPECT_EQ(1U, executor.drain());
        },
        tag);
    executor.post([&order] { order.push_back(2); }, tag);
    EXPECT_EQ(2U, executor.drain());
    EXPECT_EQ((std::vector<int>{1, 2}), order);
}

TEST(LoopExecutorTest, TaskIsDestroyedBeforeTheNextOneRuns) {
    ko::loop_executor executor;
    const auto token = std::make_shared<int>(0);
    long seen = 0;
    executor.post([token] {}, tag);
    executor.post([&] { seen = token.use_count(); }, tag);
    executor.drain();
    EXPECT_EQ(1, seen);
}

TEST(LoopExecutorTest, TasksOfManyThreadsAllRunEachThreadsInOrder) {
    constexpr std::size_t posters = 8;
    constexpr std::size_t tasks_each = 500;
    ko::loop_executor executor;
    std::vector<std::vector<std::size_t>> seen(posters);
    std::vector<std::thread> threads;
    for (std::size_t poster = 0; poster < posters; ++poster) {
        threads.emplace_back([&, poster] {
            for (std::size_t i = 0; i < tasks_each; ++i) {
                executor.post([&seen, poster, i] { seen[poster].push_back(i); }, tag);
            }
        });
    }
    std::size_t ran = 0;
    while (ran < posters * tasks_each && becomes_readable(executor.descriptor())) ran += executor.drain();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(posters * tasks_each, ran);
    for (const auto& numbers : seen) {
        ASSERT_EQ(tasks_each, numbers.size());
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }
}

TEST(LoopExecutorTest, DestructorDestroysWaitingTasksUnrunAndClosesTheDescriptor) {
    const auto token = std::make_shared<int>(0);
    int descriptor = -1;
    {
        ko::loop_executor executor;
        descriptor = executor.descriptor();
        executor.post([token] { FAIL() << "ran in the destructor"; }, tag);
    }
    EXPECT_EQ(1, token.use_count());
    EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
}

TEST(LoopExecutorDeathTest, LackOfDescriptorsStopsTheProcess) {
    if (kel::http::test::underSanitizer())
        GTEST_SKIP() << "the sanitizers need descriptors of their own to look at an object";
    EXPECT_DEATH(
        {
            rlimit none{};
            setrlimit(RLIMIT_NOFILE, &none);
            const ko::loop_executor executor;
        },
        "Assertion 'descriptor_ >= 0' failed");
}

TEST(LoopExecutorDeathTest, EmptyTaskEndsTheProcessWhenItsTurnComes) {
    EXPECT_DEATH(
        {
            ko::loop_executor executor;
            executor.post(nullptr, tag);
            executor.drain();
        },
        "bad_function_call");
}

}  // namespace
