// SPDX-License-Identifier: MIT
#include "ko/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "Waiting.h"

namespace {

std::string name_of_this_thread() {
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return name.data();
}

ko::thread start(const std::function<void()>& body) {
    ko::thread_id id = ko::invalid_thread_id;
    return ko::thread::create_thread("Worker", {}, id, body);
}

std::string name_of_thread_with(const ko::thread::attributes& attributes) {
    std::string name;
    ko::thread_id id = ko::invalid_thread_id;
    ko::thread thread =
        ko::thread::create_thread("CurlEngine", attributes, id, [&name] { name = name_of_this_thread(); });
    thread.join();
    return name;
}

TEST(ThreadTest, IdsOfTwoThreadsDifferAndNoneIsInvalid) {
    ko::thread_id other = ko::invalid_thread_id;
    ko::thread thread = start([&other] { other = ko::this_thread::get_id(); });
    thread.join();
    EXPECT_NE(ko::invalid_thread_id, other);
    EXPECT_NE(ko::invalid_thread_id, ko::this_thread::get_id());
    EXPECT_NE(ko::this_thread::get_id(), other);
    EXPECT_EQ(ko::this_thread::get_id(), ko::this_thread::get_id());
}

TEST(ThreadTest, CreatingFillsTheIdUnderWhichTheBodyRuns) {
    ko::thread_id id = ko::invalid_thread_id;
    ko::thread_id seen = ko::invalid_thread_id;
    ko::thread thread = ko::thread::create_thread("Worker", {}, id, [&seen] { seen = ko::this_thread::get_id(); });
    EXPECT_TRUE(thread.joinable());
    EXPECT_EQ(id, thread.get_id());
    thread.join();
    EXPECT_EQ(id, seen);
    EXPECT_FALSE(thread.joinable());
    EXPECT_EQ(ko::invalid_thread_id, thread.get_id());
}

TEST(ThreadTest, BodyCopyDiesWithTheThread) {
    auto token = std::make_shared<int>(1);
    ko::thread thread;
    {
        const std::function<void()> body = [token] {};
        thread = start(body);
    }
    thread.join();
    EXPECT_EQ(1, token.use_count());
}

TEST(ThreadTest, BodyMayOutliveTheCallersFunction) {
    Event destroyed_the_original;
    Event ran;
    ko::thread thread;
    {
        const std::function<void()> body = [&] {
            if (destroyed_the_original.await()) ran.set();
        };
        thread = start(body);
    }
    destroyed_the_original.set();
    EXPECT_TRUE(ran.await());
    thread.join();
}

TEST(ThreadTest, DefaultAttributesAskForNothing) {
    const ko::thread::attributes attributes;
    EXPECT_FALSE(attributes.has_scheduler());
    EXPECT_EQ(0, attributes.scheduler_policy());
    EXPECT_EQ(0, attributes.scheduler_priority());
    EXPECT_EQ(0U, attributes.stack_size());
    EXPECT_EQ("CurlEngine", name_of_thread_with(attributes));
}

TEST(ThreadTest, AttributesKeepWhatWasSet) {
    ko::thread::attributes attributes;
    attributes.set_scheduler(2, 7);
    attributes.set_stack_size(262144);
    EXPECT_TRUE(attributes.has_scheduler());
    EXPECT_EQ(2, attributes.scheduler_policy());
    EXPECT_EQ(7, attributes.scheduler_priority());
    EXPECT_EQ(262144U, attributes.stack_size());
}

TEST(ThreadTest, LongNameIsCutToWhatTheSystemKeeps) {
    std::string name;
    ko::thread_id id = ko::invalid_thread_id;
    ko::thread thread =
        ko::thread::create_thread("A name of twenty cha", {}, id, [&] { name = name_of_this_thread(); });
    thread.join();
    EXPECT_EQ("A name of twent", name);
}

TEST(ThreadTest, SchedulerThatCannotBeAppliedStillGivesANamedThread) {
    const std::array<std::pair<int, int>, 5> schedulers{{{2, 0}, {2, 1}, {1, 99}, {2, 1000}, {77, 3}}};
    for (const auto& [policy, priority] : schedulers) {
        ko::thread::attributes attributes;
        attributes.set_scheduler(policy, priority);
        attributes.set_stack_size(262144);
        EXPECT_EQ("CurlEngine", name_of_thread_with(attributes)) << policy << ", " << priority;
    }
}

TEST(ThreadTest, OrdinarySchedulerIsApplied) {
    ko::thread::attributes attributes;
    attributes.set_scheduler(SCHED_OTHER, 0);
    EXPECT_EQ("CurlEngine", name_of_thread_with(attributes));
}

TEST(ThreadTest, StackHasTheSizeThatWasAskedFor) {
    ko::thread::attributes attributes;
    attributes.set_stack_size(512 * 1024);
    std::size_t stack_size = 0;
    ko::thread_id id = ko::invalid_thread_id;
    ko::thread thread = ko::thread::create_thread("Worker", attributes, id, [&stack_size] {
        pthread_attr_t own;
        pthread_getattr_np(pthread_self(), &own);
        pthread_attr_getstacksize(&own, &stack_size);
        pthread_attr_destroy(&own);
    });
    thread.join();
    EXPECT_GE(stack_size, 512U * 1024 - 65536);  // a guard page or two may be taken from it
    EXPECT_LE(stack_size, 1024U * 1024);
}

TEST(ThreadTest, StackSizeOutOfRangeStillGivesANamedThread) {
    for (const std::size_t bytes : {std::size_t{1}, std::numeric_limits<std::size_t>::max() / 4 + 1}) {
        ko::thread::attributes attributes;
        attributes.set_stack_size(bytes);
        EXPECT_EQ("CurlEngine", name_of_thread_with(attributes)) << bytes;
    }
}

TEST(ThreadTest, DefaultThreadStandsForNone) {
    const ko::thread thread;
    EXPECT_FALSE(thread.joinable());
    EXPECT_EQ(ko::invalid_thread_id, thread.get_id());
}

TEST(ThreadTest, MovingHandsTheThreadOver) {
    ko::thread first = start([] {});
    const ko::thread_id id = first.get_id();
    ko::thread second(std::move(first));
    EXPECT_FALSE(first.joinable());
    EXPECT_EQ(id, second.get_id());
    ko::thread third;
    third = std::move(second);
    EXPECT_FALSE(second.joinable());
    EXPECT_EQ(id, third.get_id());
    third.join();
}

TEST(ThreadDeathTest, DestroyingAJoinableThreadStopsTheProcess) {
    EXPECT_DEATH({ const ko::thread thread = start([] {}); }, "Assertion '!joinable\\(\\)' failed");
}

TEST(ThreadDeathTest, OverwritingAJoinableThreadStopsTheProcess) {
    EXPECT_DEATH(
        {
            ko::thread thread = start([] {});
            thread = ko::thread();
        },
        "Assertion '!joinable\\(\\)' failed");
}

TEST(ThreadDeathTest, JoiningNoThreadStopsTheProcess) {
    EXPECT_DEATH(ko::thread().join(), "Assertion 'joinable\\(\\)' failed");
}

TEST(ThreadDeathTest, ThreadJoiningItselfStopsTheProcess) {
    EXPECT_DEATH(
        {
            Event assigned;
            ko::thread thread;
            thread = start([&] {
                if (assigned.await()) thread.join();
            });
            assigned.set();
            Event never;
            static_cast<void>(never.await());
        },
        "Assertion 'error == 0' failed");
}

TEST(ThreadDeathTest, ExceptionLeavingTheBodyEndsTheProcess) {
    EXPECT_DEATH(start([] { throw std::runtime_error("thrown by a body"); }).join(), "thrown by a body");
}

}  // namespace
