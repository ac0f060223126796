// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ToolProcess.h"
#include "support/NginxServer.h"
#include "support/ScriptedServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;

TEST(ToolConnectionTest, RedirectsAreFollowedUnlessTheyAreNotWanted) {
    ScriptedServer server;
    server.onRequest([](const ReceivedRequest& request) {
        return request.target == "/from" ? Reply::redirect("/to").body("moved") : Reply(200).body("arrived");
    });
    EXPECT_EQ(runTool({"get", server.url("/from")}).out, "arrived");
    const ToolResult redirect = runTool({"get", server.url("/from"), "--no-redirects"});
    EXPECT_EQ(redirect.out, "moved");
    EXPECT_EQ(redirect.exit_code, 0);
}

TEST(ToolConnectionTest, AStalledAnswerTimesOut) {
    ScriptedServer server;
    server.enqueue(Reply(200).stallBeforeHeaders());
    const ToolResult result = runTool({"get", server.url(), "--timeout", "100ms"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr(server.url()));
    EXPECT_THAT(result.err, HasSubstr("timed out"));
    EXPECT_THAT(result.err, HasSubstr("--timeout"));
}

TEST(ToolConnectionTest, TheSizeLimitHoldsForAnnouncedAndUnannouncedBodies) {
    ScriptedServer server;
    const std::string body(2000, 'x');
    TemporaryDirectory directory;
    server.enqueue(Reply(200).body(body));
    EXPECT_EQ(runTool({"get", server.url(), "--size-limit", "1K"}).exit_code, 3);
    server.enqueue(Reply(200).chunked().body(body));
    const ToolResult unannounced = runTool({"get", server.url(), "--size-limit", "1K", "-o", directory.path("out")});
    EXPECT_EQ(unannounced.exit_code, 3);
    EXPECT_THAT(unannounced.err, HasSubstr("--size-limit"));
    EXPECT_THAT(directory.names(), testing::IsEmpty());
    server.enqueue(Reply(200).body(body));
    EXPECT_EQ(runTool({"get", server.url(), "--size-limit", "2000"}).out, body);
}

TEST(ToolConnectionTest, ALimitedRateDeliversTheWholeBody) {
    ScriptedServer server;
    server.enqueue(Reply(200).body("slowly"));
    EXPECT_EQ(runTool({"get", server.url(), "--limit-rate", "1M"}).out, "slowly");
}

TEST(ToolConnectionTest, TheIpVersionDecidesWhichAddressIsUsed) {
    ScriptedServer server(Family::IPv4);
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("four"); });
    EXPECT_EQ(runTool({"get", server.url(), "-4"}).out, "four");
    EXPECT_EQ(runTool({"-4", "get", server.url()}).out, "four");
    EXPECT_EQ(runTool({"get", server.url(), "-6"}).exit_code, 3);
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST(ToolConnectionTest, AUrlWithoutSchemeIsHttp) {
    ScriptedServer server;
    server.enqueue(Reply(200).body("plain"));
    EXPECT_EQ(runTool({"get", server.authority() + "/"}).out, "plain");
}

TEST(ToolConnectionTest, AnUnknownCertificateIsRefusedUnlessTrustedOrNotChecked) {
    NginxServer::Options options;
    options.tls = true;
    NginxServer server(options);
    const std::string url = server.tlsUrl("/redirect/0");
    const ToolResult refused = runTool({"get", url});
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_THAT(refused.err, HasSubstr("--ca-file"));
    EXPECT_EQ(runTool({"get", url, "--ca-file", TestCertificates::shared().caFile()}).out, "arrived");
    EXPECT_EQ(runTool({"get", url, "--insecure"}).out, "arrived");
}

}  // namespace
}  // namespace kel::http::test
