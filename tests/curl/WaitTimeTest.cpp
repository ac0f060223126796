// SPDX-License-Identifier: MIT
#include "kel-http/curl/WaitTime.h"

#include <gtest/gtest.h>

#include <limits>

namespace kel::http::test {
namespace {

void expectWait(long timer_ms, long whole_seconds, long microseconds) {
    const timeval time = waitTime(timer_ms);
    EXPECT_EQ(time.tv_sec, whole_seconds) << timer_ms;
    EXPECT_EQ(time.tv_usec, microseconds) << timer_ms;
}

TEST(WaitTimeTest, WithoutATimerTheWaitIsHalfAMinute) {
    expectWait(-1, 30, 0);
    expectWait(std::numeric_limits<long>::min(), 30, 0);
}

TEST(WaitTimeTest, ATimerIsWaitedForToTheMillisecond) {
    expectWait(0, 0, 0);
    expectWait(5, 0, 5000);
    expectWait(999, 0, 999000);
    expectWait(1000, 1, 0);
    expectWait(30001, 30, 1000);
    expectWait(60000, 60, 0);
    expectWait(60999, 60, 999000);
}

TEST(WaitTimeTest, NoWaitIsLongerThanAMinute) {
    expectWait(61000, 60, 0);
    expectWait(61999, 60, 0);
    expectWait(70000, 60, 0);
    expectWait(std::numeric_limits<long>::max(), 60, 0);
}

TEST(WaitTimeTest, ADeadlineShortensTheWait) {
    using std::chrono::nanoseconds;
    const auto expectSooner = [](const timeval& time, nanoseconds other, long whole_seconds, long microseconds) {
        const timeval shorter = sooner(time, other);
        EXPECT_EQ(shorter.tv_sec, whole_seconds) << other.count();
        EXPECT_EQ(shorter.tv_usec, microseconds) << other.count();
    };
    expectSooner({30, 0}, std::chrono::hours(1), 30, 0);
    expectSooner({30, 0}, std::chrono::seconds(30), 30, 0);
    expectSooner({30, 0}, nanoseconds(1'500'000'000), 1, 500000);
    expectSooner({30, 0}, nanoseconds(1'500'000'001), 1, 500001);
    expectSooner({30, 0}, nanoseconds(1), 0, 1);
    expectSooner({30, 0}, nanoseconds(0), 0, 0);
    expectSooner({30, 0}, nanoseconds(-5), 0, 0);
    expectSooner({0, 0}, std::chrono::seconds(1), 0, 0);
}

TEST(WaitTimeTest, MillisecondsAreRoundedUp) {
    EXPECT_EQ(waitMilliseconds({0, 0}), 0);
    EXPECT_EQ(waitMilliseconds({0, 1}), 1);
    EXPECT_EQ(waitMilliseconds({0, 5000}), 5);
    EXPECT_EQ(waitMilliseconds({0, 5001}), 6);
    EXPECT_EQ(waitMilliseconds({30, 0}), 30000);
    EXPECT_EQ(waitMilliseconds({60, 999000}), 60999);
}

}  // namespace
}  // namespace kel::http::test
