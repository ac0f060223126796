// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "support/ClosedPort.h"
#include "support/Emulator.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Result {
    int exit_code = -1;
    // Both streams.
    std::string output;
};

Result runExample(const std::string& name, const std::string& argument) {
    std::string command = "env -u http_proxy -u all_proxy";
    for (const std::string& word : commandOf(name)) command += " " + word;
    command += " " + argument + " 2>&1";
    FILE* const stream = popen(command.c_str(), "r");
    Result result;
    std::array<char, 4096> piece{};
    while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), stream)) {
        result.output.append(piece.data(), size);
    }
    const int status = pclose(stream);
    if (WIFEXITED(status)) result.exit_code = WEXITSTATUS(status);
    return result;
}

class ExampleTest : public testing::TestWithParam<const char*> {
 protected:
    static Result run(const std::string& argument) { return runExample(GetParam(), argument); }

    ScriptedServer server;
};

INSTANTIATE_TEST_SUITE_P(Of, ExampleTest, testing::Values("example_get", "example_event_loop", "example_task_queue"),
                         [](const auto& example) { return std::string(example.param).substr(8); });

TEST_P(ExampleTest, ResponseIsPrinted) {
    server.enqueue(Reply(200).body("twelve bytes"));
    const Result result = run(server.url());
    EXPECT_THAT(result.output, EndsWith("status 200, 12 bytes\n"));
    EXPECT_EQ(result.exit_code, 0);
}

TEST_P(ExampleTest, ErrorIsPrinted) {
    const ClosedPort closed;
    const Result result = run(closed.url());
    EXPECT_THAT(result.output, HasSubstr("no answer: "));
    EXPECT_EQ(result.exit_code, 1);
}

TEST_P(ExampleTest, UsageIsPrintedWithoutAUrl) {
    const Result result = run("");
    EXPECT_THAT(result.output, HasSubstr("usage: "));
    EXPECT_EQ(result.exit_code, 1);
}

TEST(ReadmeExampleTest, BodyIsPrinted) {
    ScriptedServer server;
    server.enqueue(Reply(200).body("twelve bytes"));
    EXPECT_EQ(runExample("example_readme", server.url()).output, "twelve bytes\n");
}

TEST(ReadmeExampleTest, ErrorIsPrinted) {
    const ClosedPort closed;
    EXPECT_THAT(runExample("example_readme", closed.url()).output, StartsWith("none: "));
}

}  // namespace
}  // namespace kel::http::test
