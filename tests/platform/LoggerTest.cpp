// SPDX-License-Identifier: MIT
#include "logging/Logger.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "ConfiguredHost.h"
#include "ko/host.h"

namespace {

using logging::getLogger;

class LoggerTest : public ConfiguredHost {
 protected:
    void configure(int level) {
        settings.log_level = level;
        settings.log_sink = keep_lines();
        ko::host::configure(settings);
    }
};

TEST_F(LoggerTest, SameNameAndGroupGiveTheSameLogger) {
    std::string name = "HttpClient";
    logging::Logger* const logger = getLogger(name.c_str(), 0);
    name = "overwritten";
    EXPECT_EQ(logger, getLogger("HttpClient", 0));
    EXPECT_NE(logger, getLogger("HttpClient", 1));
    EXPECT_NE(logger, getLogger("CurlRequest", 0));
    EXPECT_EQ("HttpClient", logger->name());
}

TEST_F(LoggerTest, LineUpToTheVerbosityReachesTheSink) {
    configure(4);
    logging::Logger* const logger = getLogger("HttpClient", 0);
    EXPECT_EQ(4, logger->verbosity());
    logger->write(1, "an error");
    logger->write(4, "details");
    logger->write(5, "too much");
    EXPECT_EQ((std::vector<KeptLine>{{"HttpClient", 1, "an error"}, {"HttpClient", 4, "details"}}), lines);
}

TEST_F(LoggerTest, VerbosityOfOneLoggerCanBeChanged) {
    configure(1);
    logging::Logger* const logger = getLogger("HttpClient", 0);
    logger->set_verbosity(9);
    logger->write(9, "payload");
    logger->set_verbosity(0);
    logger->write(1, "an error");
    EXPECT_EQ((std::vector<KeptLine>{{"HttpClient", 9, "payload"}}), lines);
    EXPECT_EQ(1, getLogger("CurlRequest", 0)->verbosity());
}

TEST_F(LoggerTest, TextMayHoldAnything) {
    configure(1);
    const std::string text("a\0{}%s\n", 7);
    getLogger("HttpClient", 0)->write(1, text);
    getLogger("HttpClient", 0)->write(1, "");
    EXPECT_EQ((std::vector<KeptLine>{{"HttpClient", 1, text}, {"HttpClient", 1, ""}}), lines);
}

TEST_F(LoggerTest, ConfiguringReachesLoggersOldAndNew) {
    logging::Logger* const old_logger = getLogger("LoggerTest.Old", 0);
    settings.log_levels = {{"LoggerTest.Old", 8}, {"LoggerTest.Named", 2}};
    configure(3);
    EXPECT_EQ(8, old_logger->verbosity());
    EXPECT_EQ(2, getLogger("LoggerTest.Named", 0)->verbosity());
    EXPECT_EQ(2, getLogger("LoggerTest.Named", 5)->verbosity());
    EXPECT_EQ(3, getLogger("LoggerTest.Other", 0)->verbosity());
    settings.log_levels.clear();
    configure(0);
    EXPECT_EQ(0, old_logger->verbosity());
}

TEST_F(LoggerTest, ThrowingSinkCostsTheLineOnly) {
    int calls = 0;
    settings.log_sink = [&calls](const ko::host::LogLine&) {
        ++calls;
        throw std::runtime_error("the disk is full");
    };
    ko::host::configure(settings);
    getLogger("HttpClient", 0)->write(1, "lost");
    getLogger("HttpClient", 0)->write(1, "lost too");
    EXPECT_EQ(2, calls);
}

TEST_F(LoggerTest, WhatASinkLogsIsDropped) {
    int calls = 0;
    settings.log_sink = [&calls](const ko::host::LogLine&) {
        ++calls;
        getLogger("HttpClient", 0)->write(1, "from within the sink");
    };
    ko::host::configure(settings);
    getLogger("HttpClient", 0)->write(1, "a line");
    getLogger("HttpClient", 0)->write(1, "another line");
    EXPECT_EQ(2, calls);
}

TEST_F(LoggerTest, EmptySinkDropsEverything) {
    settings.log_sink = nullptr;
    ko::host::configure(settings);
    getLogger("HttpClient", 0)->write(1, "to nobody");
}

TEST_F(LoggerTest, SinkIsCalledByOneThreadAtATime) {
    configure(1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 250; ++n) getLogger("HttpClient", 0)->write(1, "a line");
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(1000U, lines.size());
}

TEST_F(LoggerTest, VerbosityMayChangeWhileOthersWrite) {
    configure(1);
    logging::Logger* const logger = getLogger("HttpClient", 0);
    std::thread writer([logger] {
        for (int n = 0; n < 500; ++n) logger->write(2, "a line");
    });
    for (int n = 0; n < 500; ++n) logger->set_verbosity(n % 4);
    writer.join();
    EXPECT_LE(lines.size(), 500U);
}

TEST(LoggerDeathTest, ProcessThatNeverConfiguresIsSilent) {
    EXPECT_EXIT(
        {
            logging::Logger* const logger = getLogger("HttpClient", 0);
            const bool silent = logger->verbosity() == 0;
            logger->write(1, "an error");
            logger->set_verbosity(9);
            logger->write(1, "an error");
            std::exit(silent ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^$");
}

struct LateSpeaker {
    ~LateSpeaker() { getLogger("HttpClient", 0)->write(1, "said at the very end"); }
};

TEST(LoggerDeathTest, ObjectsWithStaticStorageLogFromTheirDestructors) {
    EXPECT_EXIT(
        {
            static const LateSpeaker speaker;
            ko::host::Settings settings;
            settings.secure_store_directory = "/nonexistent";
            ko::host::configure(settings);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "said at the very end");
}

}  // namespace
