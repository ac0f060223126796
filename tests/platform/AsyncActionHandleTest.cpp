// SPDX-License-Identifier: MIT
#include "ko/async_action_handle.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace {

struct Tag {};
using Handle = ko::AsyncActionHandle<Tag>;
using ko::CallbackType;

static_assert(!std::is_copy_constructible_v<Handle> && !std::is_copy_assignable_v<Handle>);
static_assert(std::is_nothrow_move_constructible_v<Handle> && std::is_nothrow_move_assignable_v<Handle>);
static_assert(static_cast<int>(CallbackType::repeating) == 0 && static_cast<int>(CallbackType::once) == 1);

TEST(AsyncActionHandleTest, RepeatingCallbackComesThroughAgainAndAgain) {
    const Handle handle;
    int calls = 0;
    const auto wrapped = handle.wrap(CallbackType::repeating, [&calls] { ++calls; });
    wrapped();
    wrapped();
    wrapped();
    EXPECT_EQ(3, calls);
    EXPECT_TRUE(handle.active());
}

TEST(AsyncActionHandleTest, OnceComesThroughOnceAndShutsTheOthersOff) {
    const Handle handle;
    std::vector<std::string> heard;
    const auto progress = handle.wrap(CallbackType::repeating, [&heard] { heard.emplace_back("progress"); });
    const auto response = handle.wrap(CallbackType::once, [&heard] { heard.emplace_back("response"); });
    const auto error = handle.wrap(CallbackType::once, [&heard] { heard.emplace_back("error"); });
    progress();
    response();
    response();
    error();
    progress();
    EXPECT_EQ((std::vector<std::string>{"progress", "response"}), heard);
    EXPECT_FALSE(handle.active());
}

TEST(AsyncActionHandleTest, OnceIsOverAlreadyWhileItsCallbackRuns) {
    const Handle handle;
    bool active_inside = true;
    handle.wrap(CallbackType::once, [&] { active_inside = handle.active(); })();
    EXPECT_FALSE(active_inside);
}

TEST(AsyncActionHandleTest, CallbackIsDroppedAfterTheHandlesEnd) {
    std::optional<Handle> handle(std::in_place);
    int calls = 0;
    const std::function<void()> repeating = handle->wrap(CallbackType::repeating, [&calls] { ++calls; });
    const std::function<void()> once = handle->wrap(CallbackType::once, [&calls] { ++calls; });
    handle.reset();
    repeating();
    once();
    EXPECT_EQ(0, calls);
}

TEST(AsyncActionHandleTest, CopiesOfAWrappedCallbackShareTheFlag) {
    const Handle handle;
    int calls = 0;
    const auto wrapped = handle.wrap(CallbackType::once, [&calls] { ++calls; });
    const auto copy = wrapped;
    copy();
    wrapped();
    EXPECT_EQ(1, calls);
}

TEST(AsyncActionHandleTest, ArgumentsArePassedOnAsTheyCame) {
    const Handle handle;
    std::unique_ptr<int> taken;
    int changed = 0;
    const auto wrapped = handle.wrap(CallbackType::repeating, [&taken](std::unique_ptr<int> owned, int& reference) {
        taken = std::move(owned);
        reference = 5;
    });
    wrapped(std::make_unique<int>(7), changed);
    ASSERT_TRUE(taken);
    EXPECT_EQ(7, *taken);
    EXPECT_EQ(5, changed);
}

TEST(AsyncActionHandleTest, CallbackMayHaveAStateOfItsOwn) {
    const Handle handle;
    int last = 0;
    const auto wrapped = handle.wrap(CallbackType::repeating, [&last, count = 0]() mutable { last = ++count; });
    wrapped();
    wrapped();
    EXPECT_EQ(2, last);
}

TEST(AsyncActionHandleTest, CancelActionRunsOnceWithTheHandlesEnd) {
    int cancelled = 0;
    {
        Handle handle;
        handle.set_cancel_action([&cancelled] { ++cancelled; });
        EXPECT_EQ(0, cancelled);
    }
    EXPECT_EQ(1, cancelled);
}

TEST(AsyncActionHandleTest, CancelActionSeesTheHandleInactive) {
    Handle handle;
    bool active_inside = true;
    handle.set_cancel_action([&] { active_inside = handle.active(); });
    handle.cancel();
    EXPECT_FALSE(active_inside);
}

TEST(AsyncActionHandleTest, CancellingTwiceRunsTheActionOnce) {
    int cancelled = 0;
    {
        Handle handle;
        handle.set_cancel_action([&] {
            ++cancelled;
            handle.cancel();
        });
        handle.cancel();
        handle.cancel();
    }
    EXPECT_EQ(1, cancelled);
}

TEST(AsyncActionHandleTest, CancelActionRunsAlsoWhenTheActionIsOver) {
    int cancelled = 0;
    {
        Handle handle;
        handle.set_cancel_action([&cancelled] { ++cancelled; });
        handle.wrap(CallbackType::once, [] {})();
    }
    EXPECT_EQ(1, cancelled);
}

TEST(AsyncActionHandleTest, MovingHandsTheActionOver) {
    int calls = 0;
    int cancelled = 0;
    std::optional<Handle> first(std::in_place);
    first->set_cancel_action([&cancelled] { ++cancelled; });
    const auto wrapped = first->wrap(CallbackType::repeating, [&calls] { ++calls; });
    {
        const Handle second(std::move(*first));
        EXPECT_FALSE(first->active());
        EXPECT_TRUE(second.active());
        first.reset();
        EXPECT_EQ(0, cancelled);
        wrapped();
        EXPECT_EQ(1, calls);
    }
    EXPECT_EQ(1, cancelled);
    wrapped();
    EXPECT_EQ(1, calls);
}

TEST(AsyncActionHandleTest, OverwritingCancelsWhatWasThereBefore) {
    std::vector<std::string> cancelled;
    Handle first;
    first.set_cancel_action([&cancelled] { cancelled.emplace_back("first"); });
    int calls = 0;
    const auto wrapped = first.wrap(CallbackType::repeating, [&calls] { ++calls; });
    {
        Handle second;
        second.set_cancel_action([&cancelled] { cancelled.emplace_back("second"); });
        first = std::move(second);
    }
    EXPECT_EQ((std::vector<std::string>{"first"}), cancelled);
    wrapped();
    EXPECT_EQ(0, calls);
    EXPECT_TRUE(first.active());
    first.cancel();
    EXPECT_EQ((std::vector<std::string>{"first", "second"}), cancelled);
}

TEST(AsyncActionHandleTest, MovingOntoItselfChangesNothing) {
    Handle handle;
    int cancelled = 0;
    handle.set_cancel_action([&cancelled] { ++cancelled; });
    Handle& same = handle;
    handle = std::move(same);
    EXPECT_TRUE(handle.active());
    EXPECT_EQ(0, cancelled);
}

TEST(AsyncActionHandleTest, CancelledHandleTakesOverANewAction) {
    Handle handle;
    handle.cancel();
    handle = Handle();
    int calls = 0;
    handle.wrap(CallbackType::once, [&calls] { ++calls; })();
    EXPECT_EQ(1, calls);
}

TEST(AsyncActionHandleDeathTest, WrappingOnAMovedFromHandleStopsTheProcess) {
    Handle first;
    const Handle second(std::move(first));
    EXPECT_DEATH(first.wrap(CallbackType::once, [] {}), "Assertion 'active_flag' failed");
}

TEST(AsyncActionHandleDeathTest, WrappingOnACancelledHandleStopsTheProcess) {
    Handle handle;
    handle.cancel();
    EXPECT_DEATH(handle.wrap(CallbackType::once, [] {}),
                 "ko/async_action_handle.h:[0-9]+: wrap: Assertion 'active_flag' failed");
}

}  // namespace
