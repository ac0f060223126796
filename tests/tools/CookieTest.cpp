// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ToolProcess.h"
#include "support/Files.h"
#include "support/ScriptedServer.h"
#include "support/SpoiledFolder.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;

class ToolCookieTest : public testing::Test {
 protected:
    ToolCookieTest() {
        server.onRequest(
            [](const ReceivedRequest&) { return Reply(200).header("Set-Cookie", "visit=first; Max-Age=3600"); });
    }

    // The cookies that the tool sends.
    std::string sentWith(std::vector<std::string> options) {
        options.insert(options.begin(), {"get", server.url()});
        const ToolResult result = runTool(options);
        EXPECT_EQ(result.exit_code, 0) << result.err;
        return server.requests().back().header("Cookie").value_or("none");
    }

    std::string kept() const { return readWholeFile(folder.path("httpcookies")); }

    ScriptedServer server;
    const TemporaryDirectory folder;
    const std::vector<std::string> here = {"--temp-dir", folder.path()};
    const std::vector<std::string> keeping = {"--temp-dir", folder.path(), "--cookies", "write"};
};

TEST_F(ToolCookieTest, KeptCookieIsSentByTheNextRun) {
    EXPECT_EQ(sentWith(keeping), "none");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"httpcookies"});
    EXPECT_EQ(sentWith(keeping), "visit=first");
    EXPECT_EQ(sentWith(here), "visit=first");
    EXPECT_EQ(sentWith({"--temp-dir", folder.path() + "/", "--cookies", "read"}), "visit=first");
}

TEST_F(ToolCookieTest, CookiesAreKeptInAFolderOfOnesOwn) {
    const ToolProcess::Input session{"", {"XDG_RUNTIME_DIR=" + folder.path()}};
    EXPECT_EQ(runTool({"get", server.url(), "--cookies", "write"}, session).exit_code, 0);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"kel-http"});
    EXPECT_THAT(readWholeFile(folder.path("kel-http/httpcookies")), HasSubstr("visit"));
    EXPECT_EQ(runTool({"get", server.url()}, session).exit_code, 0);
    EXPECT_EQ(server.requests().back().header("Cookie"), "visit=first");
}

TEST_F(ToolCookieTest, CookiesThatCanNotBeKeptAreNotAskedFor) {
    const ToolProcess::Input session{"", {"XDG_RUNTIME_DIR=" + folder.path()}};
    writeWholeFile(folder.path("kel-http"), "");
    const SpoiledFolder shared;
    const ToolResult result = runTool({"get", server.url(), "--cookies", "write"}, session);
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr("--temp-dir"));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_EQ(runTool({"get", server.url()}, session).exit_code, 0);
}

TEST_F(ToolCookieTest, FileIsLeftAloneUnlessItIsToBeWritten) {
    EXPECT_EQ(sentWith(here), "none");
    EXPECT_THAT(folder.names(), testing::IsEmpty());
    sentWith(keeping);
    const std::string before = kept();
    server.enqueue(Reply(200).header("Set-Cookie", "visit=second; Max-Age=3600"));
    EXPECT_EQ(sentWith(here), "visit=first");
    EXPECT_EQ(kept(), before);
}

TEST_F(ToolCookieTest, NoneIsSentWhenNoneIsWanted) {
    EXPECT_EQ(sentWith({"--cookies", "none"}), "none");
}

TEST_F(ToolCookieTest, ResetForgetsTheCookiesOfThisServer) {
    sentWith(keeping);
    EXPECT_EQ(sentWith({"--temp-dir", folder.path(), "--reset-state"}), "none");
    EXPECT_EQ(sentWith(here), "visit=first");
    server.enqueue(Reply(200));
    EXPECT_EQ(sentWith({"--temp-dir", folder.path(), "--cookies", "write", "--reset-state"}), "none");
    EXPECT_EQ(sentWith(here), "none");
}

TEST_F(ToolCookieTest, FolderThatCanNotBeUsedIsNamedAndNothingIsSent) {
    const std::string missing = folder.path("missing");
    for (const char* const cookies : {"read", "write"}) {
        const ToolResult result = runTool({"get", server.url(), "--temp-dir", missing, "--cookies", cookies});
        EXPECT_EQ(result.exit_code, 4);
        EXPECT_THAT(result.err, HasSubstr(missing));
    }
    writeWholeFile(folder.path("file"), "");
    EXPECT_EQ(runTool({"get", server.url(), "--temp-dir", folder.path("file")}).exit_code, 4);
    EXPECT_EQ(server.connectionCount(), 0U);
}

}  // namespace
}  // namespace kel::http::test
