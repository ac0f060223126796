// SPDX-License-Identifier: MIT
#include "logging/tovanlog.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ConfiguredHost.h"
#include "ko/host.h"

namespace {

class TovanlogTest : public ConfiguredHost {
 protected:
    void SetUp() override {
        settings.log_level = 0;
        settings.log_sink = keep_lines();
        ko::host::configure(settings);
    }
};

TEST_F(TovanlogTest, LineIsWrittenWhateverTheVerbosityWithoutItsLineFeed) {
    tovanlog_write(2, 0, "CurlEngine: Error writing eventfd\n", 34);
    EXPECT_EQ((std::vector<KeptLine>{{"tovanlog", 2, "CurlEngine: Error writing eventfd"}}), lines);
}

TEST_F(TovanlogTest, LengthDecidesWhereTheTextEnds) {
    tovanlog_write(3, 1, "abcdef", 3);
    tovanlog_write(1, 0, nullptr, 0);
    tovanlog_write(1, 0, "\n\n", 2);
    EXPECT_EQ((std::vector<KeptLine>{{"tovanlog", 3, "abc"}, {"tovanlog", 1, ""}, {"tovanlog", 1, "\n"}}), lines);
}

void configure_sink_that_prints() {
    ko::host::Settings settings;
    settings.secure_store_directory = "/nonexistent";
    settings.log_level = 0;
    settings.log_sink = [](const ko::host::LogLine& line) {
        const std::string text(line.text);
        std::fprintf(stderr, "sink %s %d <%s>\n", std::string(line.logger).c_str(), line.level, text.c_str());
    };
    ko::host::configure(settings);
}

TEST(TovanlogDeathTest, FatalWritesToStandardErrorAndAborts) {
    EXPECT_EXIT(tovanlog_fatal("code %d: %s", 7, "broken"), testing::KilledBySignal(SIGABRT), "^code 7: broken\n");
}

TEST(TovanlogDeathTest, FatalWritesToTheSinkFirst) {
    EXPECT_DEATH(
        {
            configure_sink_that_prints();
            tovanlog_fatal("%.*s", 25, "curl_mime_init() failed\n, not this");
        },
        "sink tovanlog 2 <curl_mime_init\\(\\) failed\n,>\ncurl_mime_init\\(\\) failed\n,\n");
}

TEST(TovanlogDeathTest, FatalDropsTheLineFeedAtTheEnd) {
    EXPECT_DEATH(
        {
            configure_sink_that_prints();
            tovanlog_fatal("%.*s", 24, "curl_mime_init() failed\n");
        },
        "sink tovanlog 2 <curl_mime_init\\(\\) failed>\ncurl_mime_init\\(\\) failed\n");
}

TEST(TovanlogDeathTest, LongFatalMessageIsCut) {
    const std::string text(5000, 'x');
    EXPECT_DEATH(tovanlog_fatal("%s", text.c_str()), "^x{100}x*\n");
}

TEST(TovanlogDeathTest, FatalFromWithinASinkDoesNotHang) {
    EXPECT_DEATH(
        {
            ko::host::Settings settings;
            settings.secure_store_directory = "/nonexistent";
            settings.log_sink = [](const ko::host::LogLine&) { tovanlog_fatal("fatal within a sink"); };
            ko::host::configure(settings);
            tovanlog_write(1, 0, "line", 4);
        },
        "^fatal within a sink\n");
}

}  // namespace
