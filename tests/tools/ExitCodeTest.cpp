// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ToolProcess.h"
#include "support/ClosedPort.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;

int exitCodeFor(int status) {
    ScriptedServer server;
    server.enqueue(Reply(status).body("page"));
    const ToolResult result = runTool({"get", server.url()});
    EXPECT_EQ(result.out, "page");
    return result.exit_code;
}

TEST(ToolExitCodeTest, AStatusBelow400IsSuccess) {
    EXPECT_EQ(exitCodeFor(200), 0);
    EXPECT_EQ(exitCodeFor(399), 0);
}

TEST(ToolExitCodeTest, AStatusOf400OrMoreIsTold) {
    EXPECT_EQ(exitCodeFor(400), 2);
    EXPECT_EQ(exitCodeFor(599), 2);
}

TEST(ToolExitCodeTest, ARefusedConnectionIsATransferError) {
    const ClosedPort port;
    const ToolResult result = runTool({"get", port.url()});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("GET " + port.url()));
}

TEST(ToolExitCodeTest, AnswersThatBreakOffAreTransferErrors) {
    ScriptedServer server;
    server.enqueue(Reply(200).body(std::string(1000, 'x')).closeInsideBody());
    EXPECT_EQ(runTool({"get", server.url()}).exit_code, 3);
    server.enqueue(Reply(200).closeInsideHeaders());
    EXPECT_EQ(runTool({"get", server.url()}).exit_code, 3);
}

TEST(ToolExitCodeTest, AnUnusableUrlIsATransferErrorThatSaysHowToWriteIt) {
    const ToolResult result = runTool({"get", "ftp://127.0.0.1/"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("http://host/path"));
}

TEST(ToolExitCodeTest, AHeaderWithALineBreakIsNamedButNotShown) {
    ScriptedServer server;
    const ToolResult result = runTool({"get", server.url(), "-H", "X-Token: secret\nword"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("X-Token"));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("secret")));
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(ToolExitCodeTest, FilesThatCanNotBeReadAreNamedAndNothingIsSent) {
    ScriptedServer server;
    TemporaryDirectory directory;
    const std::string missing = directory.path("missing");
    const std::string url = server.url();
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"post", url, "--data-file", missing},
                                               {"put", url, "--upload", missing},
                                               {"post", url, "-F", "file=@" + missing},
                                               {"get", url, "--ca-file", missing}}) {
        const ToolResult result = runTool(arguments);
        EXPECT_EQ(result.exit_code, 4) << arguments[2];
        EXPECT_THAT(result.err, HasSubstr(missing));
    }
    EXPECT_EQ(runTool({"put", url, "--upload", directory.path()}).exit_code, 4);
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(ToolExitCodeTest, AnOutputThatCanNotBeWrittenIsNamedAndNothingIsSent) {
    ScriptedServer server;
    TemporaryDirectory directory;
    const std::string target = directory.path("missing/file");
    const ToolResult result = runTool({"get", server.url(), "-o", target});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr(target));
    EXPECT_EQ(runTool({"get", server.url(), "-o", directory.path()}).exit_code, 4);
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(ToolExitCodeTest, AFullDiskIsTold) {
    ScriptedServer server;
    server.enqueue(Reply(200).body("too much"));
    const ToolResult result = runTool({"get", server.url(), "-o", "/dev/full"});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr("/dev/full"));
}

}  // namespace
}  // namespace kel::http::test
