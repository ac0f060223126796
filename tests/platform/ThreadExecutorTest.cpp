// SPDX-License-Identifier: MIT
#include "ko/thread_executor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Waiting.h"
#include "support/AllocationFailure.h"

namespace {

constexpr int tag = 4035;

TEST(ThreadExecutorTest, TasksRunInOrderOnItsThread) {
    std::vector<int> order;
    std::vector<ko::thread_id> ids;
    ko::thread_id id = ko::invalid_thread_id;
    {
        ko::thread_executor executor("Tasks");
        id = executor.get_id();
        for (int i = 0; i < 100; ++i) {
            executor.post(
                [&, i] {
                    order.push_back(i);
                    ids.push_back(ko::this_thread::get_id());
                },
                tag);
        }
    }
    ASSERT_EQ(100U, order.size());
    for (int i = 0; i < 100; ++i) EXPECT_EQ(i, order[static_cast<std::size_t>(i)]);
    EXPECT_EQ(std::vector<ko::thread_id>(100, id), ids);
    EXPECT_NE(ko::this_thread::get_id(), id);
}

TEST(ThreadExecutorTest, TaskOfASleepingExecutorRuns) {
    ko::thread_executor executor("Tasks");
    for (int i = 0; i < 100; ++i) {
        Event ran;
        executor.post([&ran] { ran.set(); }, tag);
        ASSERT_TRUE(ran.await());
    }
}

// While it holds, the tasks behind it wait.
void hold(ko::thread_executor& executor, Event& begun, Event& end) {
    executor.post(
        [&] {
            begun.set();
            EXPECT_TRUE(end.await());
        },
        tag);
    ASSERT_TRUE(begun.await());
}

TEST(ThreadExecutorTest, PostTakesNoMemoryForSixtyFourTasks) {
    using kel::http::test::FailAllocation;
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    ko::thread_executor executor("Tasks");
    for (int round = 0; round < 3; ++round) {
        Event begun;
        Event end;
        Event ran;
        hold(executor, begun, end);
        {
            const FailAllocation failure(1, FailAllocation::Extent::all);
            for (int i = 0; i < 63; ++i) executor.post([] {}, tag);
            executor.post([&ran] { ran.set(); }, tag);
        }
        end.set();
        ASSERT_TRUE(ran.await());
    }
}

TEST(ThreadExecutorTest, PostThatFindsNoMemoryQueuesNothing) {
    using kel::http::test::FailAllocation;
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    int ran = 0;
    {
        Event begun;
        Event end;
        ko::thread_executor executor("Tasks");
        hold(executor, begun, end);
        for (int i = 0; i < 64; ++i) executor.post([&ran] { ++ran; }, tag);
        {
            const FailAllocation failure(1);
            EXPECT_THROW(executor.post([&ran] { ++ran; }, tag), std::bad_alloc);
        }
        executor.post([&ran] { ++ran; }, tag);
        end.set();
    }
    EXPECT_EQ(65, ran);
}

TEST(ThreadExecutorTest, TasksOfManyThreadsAllRunEachThreadsInOrder) {
    constexpr int posters = 8;
    constexpr int tasks_each = 500;
    std::vector<std::vector<int>> seen(posters);
    {
        ko::thread_executor executor("Tasks");
        std::vector<std::thread> threads;
        for (std::size_t poster = 0; poster < posters; ++poster) {
            threads.emplace_back([&, poster] {
                for (int i = 0; i < tasks_each; ++i) {
                    executor.post([&seen, poster, i] { seen[poster].push_back(i); }, tag);
                }
            });
        }
        for (auto& thread : threads) thread.join();
    }
    for (const auto& numbers : seen) {
        ASSERT_EQ(static_cast<std::size_t>(tasks_each), numbers.size());
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }
}

TEST(ThreadExecutorTest, TaskPostedByATaskRunsAfterIt) {
    ko::thread_executor executor("Tasks");
    std::vector<int> order;
    Event done;
    executor.post(
        [&] {
            executor.post(
                [&] {
                    order.push_back(2);
                    done.set();
                },
                tag);
            order.push_back(1);
        },
        tag);
    ASSERT_TRUE(done.await());
    EXPECT_EQ((std::vector<int>{1, 2}), order);
}

TEST(ThreadExecutorTest, TaskIsDestroyedOnItsThreadBeforeTheNextOneRuns) {
    struct Witness {
        explicit Witness(ko::thread_id& where_to) : where(where_to) {}
        Witness(const Witness&) = delete;
        Witness& operator=(const Witness&) = delete;
        ~Witness() { where = ko::this_thread::get_id(); }
        ko::thread_id& where;
    };
    ko::thread_executor executor("Tasks");
    ko::thread_id destroyed_on = ko::invalid_thread_id;
    ko::thread_id seen_by_next = ko::invalid_thread_id;
    Event posted;
    Event done;
    executor.post([witness = std::make_shared<Witness>(destroyed_on), &posted] { ASSERT_TRUE(posted.await()); }, tag);
    executor.post(
        [&] {
            seen_by_next = destroyed_on;
            done.set();
        },
        tag);
    posted.set();
    ASSERT_TRUE(done.await());
    EXPECT_EQ(executor.get_id(), seen_by_next);
}

TEST(ThreadExecutorTest, DestructorRunsWhatWasPostedBeforeIt) {
    int ran = 0;
    Event release;
    {
        ko::thread_executor executor("Tasks");
        executor.post([&] { ASSERT_TRUE(release.await()); }, tag);
        for (int i = 0; i < 10; ++i) executor.post([&ran] { ++ran; }, tag);
        release.set();
    }
    EXPECT_EQ(10, ran);
}

// Posts itself until the executor drops it: that it ends at all shows that the destructor has closed the queue.
struct Chain {
    ko::thread_executor& executor;
    std::shared_ptr<int> token;
    void operator()() const { executor.post(*this, tag); }
};

TEST(ThreadExecutorTest, WhatTheLastTasksPostIsDroppedAndDestroyed) {
    const auto token = std::make_shared<int>(0);
    {
        ko::thread_executor executor("Tasks");
        executor.post(Chain{executor, token}, tag);
    }
    EXPECT_EQ(1, token.use_count());
}

TEST(ThreadExecutorTest, ExecutorMayDieAsSoonAsATasksEffectWasSeen) {
    for (int i = 0; i < 200; ++i) {
        std::optional<ko::thread_executor> executor(std::in_place, "Tasks");
        Event ran;
        std::thread poster([&] { executor->post([&ran] { ran.set(); }, tag); });
        ASSERT_TRUE(ran.await());
        executor.reset();
        poster.join();
    }
}

TEST(ThreadExecutorDeathTest, ExceptionLeavingATaskEndsTheProcess) {
    EXPECT_DEATH(
        {
            ko::thread_executor executor("Tasks");
            executor.post([] { throw std::runtime_error("thrown by a task"); }, tag);
        },
        "thrown by a task");
}

}  // namespace
