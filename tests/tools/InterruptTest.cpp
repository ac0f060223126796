// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "ToolProcess.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

TEST(ToolInterruptTest, CtrlCWhileTheAnswerStallsCancels) {
    ScriptedServer server;
    server.enqueue(Reply(200).stallBeforeHeaders());
    ToolProcess tool({"get", server.url(), "--json"});
    server.awaitRequests(1);
    tool.send(SIGINT);
    const ToolResult result = tool.wait();
    EXPECT_EQ(result.exit_code, 130);
    EXPECT_THAT(result.err, HasSubstr("cancelled"));
    EXPECT_EQ(Json::parse(result.out).at("outcome"), "cancelled");
    server.awaitPeerClosed(1);
}

TEST(ToolInterruptTest, CtrlCInsideADownloadLeavesNoFile) {
    ScriptedServer server;
    TemporaryDirectory directory;
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    ToolProcess tool({"get", server.url(), "-o", directory.path("file")});
    server.awaitBodyBytesSent(10);
    tool.send(SIGINT);
    EXPECT_EQ(tool.wait().exit_code, 130);
    EXPECT_THAT(directory.names(), testing::IsEmpty());
}

TEST(ToolInterruptTest, TerminationCancelsAsWell) {
    ScriptedServer server;
    server.enqueue(Reply(200).stallBeforeHeaders());
    ToolProcess tool({"get", server.url()});
    server.awaitRequests(1);
    tool.send(SIGTERM);
    EXPECT_EQ(tool.wait().exit_code, 130);
}

}  // namespace
}  // namespace kel::http::test
