// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "ConfiguredHost.h"
#include "ko/host.h"

namespace {

using ko::host::LogSink;

TEST(LogSinkTest, FileGetsEachLineWithLoggerAndLevel) {
    const TemporaryFolder folder;
    const LogSink sink = ko::host::log_to_file(folder.file("log"));
    for (int level = 1; level <= 9; ++level) sink({"HttpClient", level, "text"});
    const auto lines = folder.lines_of("log");  // with the sink still open: every line has been written already
    ASSERT_EQ(9U, lines.size());
    for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_NE(std::string::npos, lines[i].find(" [HttpClient] [" + std::to_string(i + 1) + "] text")) << lines[i];
    }
}

TEST(LogSinkTest, LevelIsWrittenAsItIsWhateverItIs) {
    const TemporaryFolder folder;
    const LogSink sink = ko::host::log_to_file(folder.file("log"));
    const int levels[] = {0, -1, 10, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
    for (const int level : levels) sink({"tovanlog", level, "text"});
    const auto lines = folder.lines_of("log");
    ASSERT_EQ(5U, lines.size());
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_NE(std::string::npos, lines[i].find("[tovanlog] [" + std::to_string(levels[i]) + "] text")) << lines[i];
    }
}

TEST(LogSinkTest, FileIsAppendedTo) {
    const TemporaryFolder folder;
    folder.write("log", "from the last run\n");
    ko::host::log_to_file(folder.file("log"))({"HttpClient", 1, "from this run"});
    EXPECT_EQ(2U, folder.lines_of("log").size());
}

TEST(LogSinkTest, FoldersOfTheFileAreMade) {
    const TemporaryFolder folder;
    ko::host::log_to_file(folder.file("a/b/log"))({"HttpClient", 1, "text"});
    EXPECT_EQ(1U, folder.lines_of("a/b/log").size());
}

TEST(LogSinkTest, CopiesOfASinkShareTheFile) {
    const TemporaryFolder folder;
    LogSink copy;
    {
        const LogSink sink = ko::host::log_to_file(folder.file("log"));
        copy = sink;
        sink({"HttpClient", 1, "first"});
    }
    copy({"HttpClient", 1, "second"});
    EXPECT_EQ(2U, folder.lines_of("log").size());
}

TEST(LogSinkTest, FileThatCannotBeOpenedThrows) {
    EXPECT_THROW(ko::host::log_to_file("/dev/null/log"), std::runtime_error);
}

TEST(LogSinkTest, TextWithBracesIsTakenLiterally) {
    const TemporaryFolder folder;
    ko::host::log_to_file(folder.file("log"))({"{}", 1, "{} %v {0}"});
    ASSERT_EQ(1U, folder.lines_of("log").size());
    EXPECT_NE(std::string::npos, folder.lines_of("log")[0].find("[{}] [1] {} %v {0}"));
}

TEST(LogSinkTest, TextForgesNoLine) {
    const TemporaryFolder folder;
    ko::host::log_to_file(folder.file("log"))(
        {"tovanlog", 1, "one\n2026-01-01 [HttpClient] [1] two\x1B[2J \xC3\xA9\xFF"});
    const auto lines = folder.lines_of("log");
    ASSERT_EQ(1U, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("one\\x0A2026-01-01 [HttpClient] [1] two\\x1B[2J \xC3\xA9\\xFF"));
}

TEST(LogSinkTest, SyslogTakesLinesOfEveryLevel) {
    const LogSink sink = ko::host::log_to_syslog("kel-http-test");
    for (int level = 1; level <= 9; ++level) EXPECT_NO_THROW(sink({"HttpClient", level, "text"}));
}

TEST(LogSinkDeathTest, StandardErrorIsNotCommanded) {
    EXPECT_EXIT(
        {
            ko::host::log_to_stderr()({"HttpClient", 2, "\x1B[2Jcareful\nnow"});
            std::exit(0);
        },
        testing::ExitedWithCode(0), "\\[2\\] \\\\x1B\\[2Jcareful\\\\x0Anow\n");
}

TEST(LogSinkDeathTest, StandardErrorGetsTheLine) {
    EXPECT_EXIT(
        {
            ko::host::log_to_stderr()({"HttpClient", 2, "careful"});
            std::exit(0);
        },
        testing::ExitedWithCode(0), "\\[HttpClient\\] \\[2\\] careful\n");
}

}  // namespace
