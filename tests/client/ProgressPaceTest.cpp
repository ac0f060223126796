// SPDX-License-Identifier: MIT
#include "kel-http/client/ProgressPace.h"

#include <gtest/gtest.h>

namespace kel::http {
namespace {

using Report = ProgressPace::Report;
using std::chrono::milliseconds;
using TimePoint = std::chrono::steady_clock::time_point;

class ProgressPaceTest : public testing::Test {
 protected:
    // Any later time than the epoch will do.
    ProgressPaceTest() {
        now = TimePoint(std::chrono::hours(1));
        readings = 0;
    }

    static void wait(milliseconds duration) { now += duration; }
    static TimePoint readClock() {
        ++readings;
        return now;
    }

    ProgressPace pace{&readClock};
    static TimePoint now;
    static int readings;
};

TimePoint ProgressPaceTest::now;
int ProgressPaceTest::readings = 0;

TEST_F(ProgressPaceTest, FirstBytesAreToldAtOnce) {
    EXPECT_EQ(pace.next(1000, 0), Report::none);
    EXPECT_EQ(pace.next(1000, 1), Report::periodic);
}

TEST_F(ProgressPaceTest, TwoCallsWithinASecondMakeOneReport) {
    EXPECT_EQ(pace.next(1000, 10), Report::periodic);
    wait(milliseconds(999));
    EXPECT_EQ(pace.next(1000, 20), Report::none);
    wait(milliseconds(1));
    EXPECT_EQ(pace.next(1000, 20), Report::periodic);
}

TEST_F(ProgressPaceTest, AReportWithheldDoesNotBeginAnotherSecond) {
    EXPECT_EQ(pace.next(1000, 10), Report::periodic);
    wait(milliseconds(600));
    EXPECT_EQ(pace.next(1000, 20), Report::none);
    wait(milliseconds(600));
    EXPECT_EQ(pace.next(1000, 30), Report::periodic);
}

TEST_F(ProgressPaceTest, AnUnchangedCountIsNeverTold) {
    EXPECT_EQ(pace.next(1000, 10), Report::periodic);
    wait(milliseconds(5000));
    EXPECT_EQ(pace.next(1000, 10), Report::none);
    EXPECT_EQ(pace.next(2000, 10), Report::none);
}

TEST_F(ProgressPaceTest, TheEndIsToldWithinTheSecond) {
    EXPECT_EQ(pace.next(1000, 999), Report::periodic);
    EXPECT_EQ(pace.next(1000, 1000), Report::completion);
}

TEST_F(ProgressPaceTest, TheEndIsToldAsOftenAsItIsSaid) {
    EXPECT_EQ(pace.next(1000, 1000), Report::completion);
    EXPECT_EQ(pace.next(1000, 1000), Report::completion);
}

TEST_F(ProgressPaceTest, TheEndBeginsAnotherSecond) {
    EXPECT_EQ(pace.next(1000, 1000), Report::completion);
    wait(milliseconds(999));
    EXPECT_EQ(pace.next(2000, 1500), Report::none);
    wait(milliseconds(1));
    EXPECT_EQ(pace.next(2000, 1500), Report::periodic);
}

TEST_F(ProgressPaceTest, AnUnknownSizeEndsAsAPeriodicReportOfNothing) {
    EXPECT_EQ(pace.next(0, 10), Report::periodic);
    EXPECT_EQ(pace.next(0, 0), Report::none);
    wait(milliseconds(1000));
    EXPECT_EQ(pace.next(0, 0), Report::periodic);
}

TEST_F(ProgressPaceTest, AnUnknownSizeWithoutBytesIsNeverTold) {
    wait(milliseconds(5000));
    EXPECT_EQ(pace.next(0, 0), Report::none);
}

TEST_F(ProgressPaceTest, TheClockIsReadOnlyWhenThereIsSomethingToTell) {
    EXPECT_EQ(pace.next(1000, 0), Report::none);
    EXPECT_EQ(readings, 0);
    EXPECT_EQ(pace.next(1000, 10), Report::periodic);
    EXPECT_EQ(pace.next(1000, 10), Report::none);
    EXPECT_EQ(readings, 1);
}

TEST(ProgressPaceClockTest, FirstBytesAreToldByTheRealClock) {
    ProgressPace pace;
    EXPECT_EQ(pace.next(1000, 1), Report::periodic);
}

}  // namespace
}  // namespace kel::http
