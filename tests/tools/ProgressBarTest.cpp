// SPDX-License-Identifier: MIT
#include "common/ProgressBar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/TerminalText.h"

namespace kel::http::tool {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint64_t MiB = 1024 * 1024;

class ProgressBarTest : public testing::Test {
 protected:
    ProgressBar bar(const std::string& name) {
        return ProgressBar(name, [this] { return now; });
    }

    // Half of 64 MiB, at 2 MiB a second.
    ProgressBar halfWay(const std::string& name = "image.bin") {
        ProgressBar half = bar(name);
        half.update(0, 64 * MiB);
        now += seconds(16);
        half.update(22 * MiB, 64 * MiB);
        now += seconds(5);
        half.update(32 * MiB, 64 * MiB);
        return half;
    }

    ProgressBar::TimePoint now{};
};

TEST(BytesTextTest, ThreeDigitsAreShownInTheLargestUnitThatFits) {
    EXPECT_EQ(bytes_text(0), "0 B");
    EXPECT_EQ(bytes_text(999), "999 B");
    EXPECT_EQ(bytes_text(1000), "0.98 KiB");
    EXPECT_EQ(bytes_text(1024), "1.00 KiB");
    EXPECT_EQ(bytes_text(10235), "10.0 KiB");
    EXPECT_EQ(bytes_text(102350), "100 KiB");
    EXPECT_EQ(bytes_text(1023 * 1024), "1.00 MiB");
    EXPECT_EQ(bytes_text(5 * 1024 * MiB), "5.00 GiB");
    EXPECT_EQ(bytes_text(~std::uint64_t{0}), "16.0 EiB");
}

TEST(DurationTextTest, SecondsAreLeftOutOfHours) {
    EXPECT_EQ(duration_text(seconds(0)), "0:00");
    EXPECT_EQ(duration_text(seconds(67)), "1:07");
    EXPECT_EQ(duration_text(seconds(3599)), "59:59");
    EXPECT_EQ(duration_text(seconds(3600)), "1h00m");
    EXPECT_EQ(duration_text(seconds(99 * 3600 + 59 * 60)), "99h59m");
    EXPECT_EQ(duration_text(seconds(100 * 3600)), "4d");
}

TEST_F(ProgressBarTest, AWideTerminalShowsEverything) {
    EXPECT_EQ(halfWay().line(80), "image.bin             50% [====>      ] 32.0 MiB/64.0 MiB 2.00 MiB/s   0:16 left");
}

TEST_F(ProgressBarTest, NarrowTerminalsLoseTheLastPartsFirst) {
    const ProgressBar half = halfWay();
    EXPECT_EQ(half.line(60), "image.bin        50% [===>    ] 32.0 MiB/64.0 MiB 2.00 MiB/s");
    EXPECT_EQ(half.line(40), "image.bin   50% 32.0 MiB/64.0 MiB");
    EXPECT_EQ(half.line(24), "...bin  50% [====>     ]");
    EXPECT_EQ(half.line(20), " 50% [=====>      ]");
    EXPECT_EQ(half.line(5), " 50%");
    EXPECT_EQ(half.line(3), "");
    EXPECT_EQ(half.line(0), "");
}

TEST_F(ProgressBarTest, NoLineIsWiderThanTheTerminal) {
    const ProgressBar half = halfWay("a name that is very long indeed.bin");
    for (std::size_t width = 0; width < 300; ++width) EXPECT_LE(half.line(width).size(), width);
}

TEST_F(ProgressBarTest, WideLettersMakeNoLineWider) {
    const ProgressBar half = halfWay("\u56fa\u4ef6\u66f4\u65b0\u6587\u4ef6.bin");
    for (std::size_t width = 0; width < 300; ++width) EXPECT_LE(columns_of(half.line(width)), width);
    EXPECT_THAT(half.line(53), testing::StartsWith("..\u65b0\u6587\u4ef6.bin   50%"));
}

TEST_F(ProgressBarTest, LinesOfOneWidthHaveTheirColumnsAtTheSamePlaces) {
    ProgressBar other = bar("another.bin");
    other.update(3, 5 * 1024 * MiB);
    const std::string first = halfWay().line(100);
    const std::string second = other.line(100);
    EXPECT_EQ(first.find('%'), second.find('%'));
    EXPECT_EQ(first.find('['), second.find('['));
    EXPECT_EQ(first.find('/'), second.find('/'));
}

TEST_F(ProgressBarTest, ALongNameKeepsItsEndAndItsCharactersWhole) {
    EXPECT_THAT(halfWay("a-very-long-name-part-0001.bin").line(80), testing::StartsWith("..name-part-0001.bin  50%"));
    EXPECT_THAT(halfWay("\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4").line(24),
                testing::StartsWith("..\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4  50%"));
}

TEST_F(ProgressBarTest, ControlCharactersOfANameAreNotPrinted) {
    EXPECT_EQ(bar("a\x1b[2J\n").text(), "a?[2J?: 0 B");
    EXPECT_EQ(bar("a\xc2\x9b[").text(), "a?[: 0 B");
}

TEST_F(ProgressBarTest, AnUnknownTotalLeavesPercentageAndTimeOut) {
    ProgressBar unknown = bar("stream");
    unknown.update(0, 0);
    now += seconds(2);
    unknown.update(4 * MiB, 0);
    EXPECT_EQ(unknown.line(60), "stream          4.00 MiB 2.00 MiB/s");
    EXPECT_EQ(unknown.text(), "stream: 4.00 MiB, 2.00 MiB/s");
}

TEST_F(ProgressBarTest, ATextTellsTheSame) {
    EXPECT_EQ(halfWay().text(), "image.bin: 50% of 64.0 MiB, 2.00 MiB/s, 0:16 left");
}

TEST_F(ProgressBarTest, ACompleteBarIsFullAndHasNoTimeLeft) {
    ProgressBar complete = halfWay();
    now += seconds(1);
    complete.update(64 * MiB, 64 * MiB);
    EXPECT_THAT(complete.line(80), HasSubstr("100% [===========] 64.0 MiB/64.0 MiB"));
    EXPECT_THAT(complete.text(), Not(HasSubstr("left")));
}

TEST_F(ProgressBarTest, WhatIsNotCompleteIsNot100Percent) {
    ProgressBar nearly = bar("file");
    nearly.update(64 * MiB - 1, 64 * MiB);
    EXPECT_THAT(nearly.line(80), HasSubstr(" 99% [=========> ]"));
}

TEST_F(ProgressBarTest, TheRateIsThatOfTheLastSeconds) {
    ProgressBar running = bar("file");
    running.update(0, 0);
    now += seconds(60);
    running.update(600 * MiB, 0);
    for (int i = 0; i < 60; ++i) {
        now += milliseconds(100);
        running.update(600 * MiB + static_cast<std::uint64_t>(i + 1) * MiB / 10, 0);
    }
    ASSERT_TRUE(running.rate());
    EXPECT_NEAR(*running.rate(), double{MiB}, 1);
}

TEST_F(ProgressBarTest, AStallLowersTheRateAndThenLeavesNoTime) {
    const ProgressBar stalled = halfWay();
    now += milliseconds(2500);
    EXPECT_NEAR(stalled.rate().value(), 10.0 * MiB / 7.5, 1);
    now += milliseconds(2500);
    EXPECT_EQ(stalled.rate(), 0.0);
    EXPECT_EQ(stalled.time_left(), std::nullopt);
    EXPECT_EQ(stalled.text(), "image.bin: 50% of 64.0 MiB, 0 B/s");
}

TEST_F(ProgressBarTest, WhatAnEarlierRunHasLeftIsNoRate) {
    ProgressBar resumed = bar("file");
    resumed.update(32 * MiB, 64 * MiB);
    EXPECT_EQ(resumed.rate(), std::nullopt);
    now += seconds(2);
    resumed.update(34 * MiB, 64 * MiB);
    EXPECT_NEAR(resumed.rate().value(), double{MiB}, 1);
    EXPECT_EQ(resumed.time_left(), seconds(30));
    EXPECT_EQ(resumed.summary(), "file: 34.0 MiB in 0:02, 1.00 MiB/s");
}

TEST_F(ProgressBarTest, ATransferThatBeginsAnewHasANewRate) {
    ProgressBar again = halfWay();
    again.update(MiB, 64 * MiB);
    EXPECT_EQ(again.rate(), std::nullopt);
    now += seconds(1);
    again.update(2 * MiB, 64 * MiB);
    EXPECT_NEAR(again.rate().value(), double{MiB}, 1);
}

TEST_F(ProgressBarTest, BeforeTheFirstUpdateNothingIsKnown) {
    const ProgressBar fresh = bar("file");
    EXPECT_EQ(fresh.rate(), std::nullopt);
    EXPECT_EQ(fresh.text(), "file: 0 B");
    EXPECT_EQ(fresh.summary(), "file: 0 B in 0:00");
}

}  // namespace
}  // namespace kel::http::tool
