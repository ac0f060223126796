// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ToolProcess.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* Secret = "opensesame";
constexpr const char* Secret_in_base64 = "bWU6b3BlbnNlc2FtZQ==";  // "me:opensesame"

Reply challenge() {
    return Reply(401).header("WWW-Authenticate", "Basic realm=\"test\"");
}

TEST(ToolLoginTest, ARealServerLetsTheUserIn) {
    NginxServer server;
    const std::string url = server.url("/auth/secret");
    EXPECT_EQ(runTool({"get", url}).exit_code, 2);
    for (const char* const method : {"basic", "any"}) {
        const ToolResult result = runTool(
            {"get", url, "-u", NginxServer::AuthUser, "--password", NginxServer::AuthPassword, "--auth", method});
        EXPECT_EQ(result.exit_code, 0) << method;
        EXPECT_EQ(result.out, "welcome");
    }
}

TEST(ToolLoginTest, ThePasswordComesFromTheEnvironment) {
    ScriptedServer server;
    server.enqueue(challenge());
    server.enqueue(Reply(200));
    const std::string variable = std::string("KEL_HTTP_PASSWORD=") + Secret;
    EXPECT_EQ(runTool({"get", server.url(), "-u", "me"}, {{}, {variable}}).exit_code, 0);
    EXPECT_EQ(server.requests().back().header("Authorization"), std::string("Basic ") + Secret_in_base64);
}

TEST(ToolLoginTest, AnUploadIsSentAgainWhenTheServerAsksForALogin) {
    ScriptedServer server;
    TemporaryDirectory directory;
    writeWholeFile(directory.path("upload"), "content");
    server.enqueue(challenge());
    server.enqueue(Reply(201));
    const ToolResult result =
        runTool({"put", server.url(), "--upload", directory.path("upload"), "-u", "me", "--password", Secret});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(server.requests().back().body, "content");
}

TEST(ToolLoginTest, ThePasswordIsNeverPrintedHoweverMuchIsLogged) {
    ScriptedServer server;
    server.enqueue(challenge());
    server.enqueue(Reply(200).body("in"));
    const ToolResult result = runTool({"get", server.url(), "-u", "me", "--password", Secret, "-vvvv", "--timing"});
    EXPECT_EQ(result.out, "in");
    EXPECT_EQ(server.requests().back().header("Authorization"), std::string("Basic ") + Secret_in_base64);
    EXPECT_THAT(result.err, HasSubstr("Authorization: xxxxxx"));
    EXPECT_THAT(result.err, Not(HasSubstr(Secret)));
    EXPECT_THAT(result.err, Not(HasSubstr(Secret_in_base64)));
}

TEST(ToolLoginTest, ThePasswordIsNotInMessagesEither) {
    for (const std::vector<std::string>& login :
         std::vector<std::vector<std::string>>{{"--password", Secret},
                                               {"-u", std::string("me:") + Secret},
                                               {"-u", "me", "--password", Secret, "--no-such-option"},
                                               {"-u", "me", "--password", Secret, "--password", Secret}}) {
        std::vector<std::string> arguments = {"get", "http://127.0.0.1:1/"};
        arguments.insert(arguments.end(), login.begin(), login.end());
        const ToolResult result = runTool(arguments);
        EXPECT_EQ(result.exit_code, 1);
        EXPECT_THAT(result.err + result.out, Not(HasSubstr(Secret)));
    }
}

}  // namespace
}  // namespace kel::http::test
