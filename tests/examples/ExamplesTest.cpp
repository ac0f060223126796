// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <future>
#include <string>
#include <string_view>

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

// A thousand letters "x", as gzip packs them.
constexpr std::string_view Packed(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\xff\xab\xa8\x18\x05\xa3\x60\x14\x0c\x77\x00\x00\xe6\xc9\x41\x3b\xe8\x03\x00"
    "\x00",
    29);

TEST(OptionsExampleTest, CompressedBodyIsUnpacked) {
    ScriptedServer server;
    server.enqueue(Reply(200).header("Content-Encoding", "gzip").body(std::string(Packed)));
    EXPECT_EQ(runExample("example_libcurl_options", "30 " + server.url()).output, "status 200, 1000 bytes\n");
    EXPECT_THAT(server.requests().at(0).header("Accept-Encoding").value_or(""), HasSubstr("gzip"));
}

TEST(OptionsExampleTest, TransferThatStandsStillEnds) {
    ScriptedServer server;
    server.enqueue(Reply(200).stallBeforeHeaders());
    const Result result = runExample("example_libcurl_options", "1 " + server.url());
    EXPECT_THAT(result.output, HasSubstr("no answer: Operation too slow."));
    EXPECT_EQ(result.exit_code, 1);
}

TEST(OptionsExampleTest, ThirdTransferWaitsForOneOfTwoConnections) {
    ScriptedServer server;
    server.onRequest([](const ReceivedRequest&) { return Reply(200).stallBeforeHeaders().body("1"); });
    const std::string urls = server.url() + " " + server.url() + " " + server.url();
    auto running = std::async(std::launch::async, [&] { return runExample("example_libcurl_options", "30 " + urls); });
    server.awaitRequests(2);
    server.release(3);
    EXPECT_EQ(running.get().output, "status 200, 1 bytes\nstatus 200, 1 bytes\nstatus 200, 1 bytes\n");
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST(OptionsExampleTest, UsageIsPrintedWithoutAUrl) {
    const Result result = runExample("example_libcurl_options", "30");
    EXPECT_THAT(result.output, HasSubstr("usage: "));
    EXPECT_EQ(result.exit_code, 1);
}

}  // namespace
}  // namespace kel::http::test
