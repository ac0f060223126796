// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "ToolProcess.h"
#include "support/FileDescriptor.h"
#include "support/Files.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class ToolOutputTest : public testing::Test {
 protected:
    ToolResult get(const Reply& reply, const std::vector<std::string>& options = {}) {
        server.enqueue(reply);
        std::vector<std::string> arguments = {"get", server.url()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

    ScriptedServer server;
    TemporaryDirectory directory;
};

TEST_F(ToolOutputTest, TheBodyComesByteByByteAndNothingElse) {
    const std::string body("\0\xff\r\n\x1b", 5);
    const ToolResult result = get(Reply(200).body(body));
    EXPECT_EQ(result.out, body);
    EXPECT_EQ(result.err, "");
}

TEST_F(ToolOutputTest, IncludePrintsStatusAndHeadersFirst) {
    EXPECT_EQ(get(Reply(202).header("B", "2").header("A", "1").body("body"), {"-i"}).out,
              "HTTP 202\nA: 1\nB: 2\nContent-Length: 4\n\nbody");
}

TEST_F(ToolOutputTest, AnErrorStatusIsToldOnStandardErrorBesideTheBody) {
    const ToolResult result = get(Reply(503).body("busy"));
    EXPECT_EQ(result.out, "busy");
    EXPECT_EQ(result.err, "kel-http: GET " + server.url() + ": the server answered with status 503\n");
}

TEST_F(ToolOutputTest, TheOutputFileIsReplacedAndNothingIsLeftBesideIt) {
    writeWholeFile(directory.path("file"), "the old content");
    const ToolResult result = get(Reply(200).body("new"), {"-o", directory.path("file")});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(readWholeFile(directory.path("file")), "new");
    EXPECT_EQ(directory.names(), std::vector<std::string>{"file"});
}

TEST_F(ToolOutputTest, AnEmptyBodyMakesAnEmptyFile) {
    EXPECT_EQ(get(Reply(204), {"--output", directory.path("file")}).exit_code, 0);
    EXPECT_EQ(readWholeFile(directory.path("file")), "");
}

TEST_F(ToolOutputTest, ALinkIsWrittenThroughAndNotReplaced) {
    writeWholeFile(directory.path("file"), "the old content");
    ASSERT_EQ(symlink(directory.path("file").c_str(), directory.path("link").c_str()), 0);
    EXPECT_EQ(get(Reply(200).body("new"), {"-o", directory.path("link")}).exit_code, 0);
    EXPECT_EQ(readWholeFile(directory.path("file")), "new");
    struct stat status {};
    ASSERT_EQ(lstat(directory.path("link").c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(ToolOutputTest, APipeIsWrittenToAndNotReplaced) {
    const std::string pipe = directory.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const FileDescriptor reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_EQ(get(Reply(200).body("to a pipe"), {"-o", pipe}).exit_code, 0);
    std::array<char, 32> received{};
    ASSERT_EQ(read(reader.get(), received.data(), received.size()), 9);
    EXPECT_STREQ(received.data(), "to a pipe");
}

TEST_F(ToolOutputTest, TimingShowsEachPhaseOnStandardError) {
    const ToolResult result = get(Reply(200).body("body"), {"--timing"});
    EXPECT_EQ(result.out, "body");
    for (const char* const phase : {"look-up", "connect", "TLS", "send", "wait", "receive", "total"}) {
        EXPECT_THAT(result.err, HasSubstr(phase));
    }
    EXPECT_THAT(result.err, HasSubstr("#"));
}

TEST_F(ToolOutputTest, EachVerboseAddsToTheLogOnStandardError) {
    const auto log = [this](const char* option) { return get(Reply(200).body("the body"), {option}).err; };
    const std::string requests = log("-v");
    EXPECT_THAT(requests, HasSubstr("HTTP: Outgoing => GET"));
    EXPECT_THAT(requests, Not(HasSubstr("[header OUT]")));
    const std::string steps = log("-vv");
    EXPECT_THAT(steps, HasSubstr("[header OUT] GET"));
    EXPECT_THAT(steps, Not(HasSubstr("Engine::runTasks")));
    const std::string details = log("-vvv");
    EXPECT_THAT(details, HasSubstr("Engine::"));
    EXPECT_THAT(details, Not(HasSubstr("[data IN]")));
    EXPECT_THAT(log("-vvvv"), HasSubstr("[data IN] the body"));
}

}  // namespace
}  // namespace kel::http::test
