// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolProcess.h"
#include "support/ClosedPort.h"
#include "support/Files.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using Json = nlohmann::json;

class ToolJsonTest : public testing::Test {
 protected:
    Json report(std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        return Json::parse(runTool(arguments).out);
    }

    Json reportOf(const Reply& reply) {
        server.enqueue(reply);
        return report({"get", server.url("/json")});
    }

    ScriptedServer server;
};

TEST_F(ToolJsonTest, AResponseIsToldWhole) {
    const Json object = reportOf(Reply(404).header("X-Answer", "42").body("gone \xc3\xa9"));
    EXPECT_EQ(object.at("request"), (Json{{"method", "GET"}, {"url", server.url("/json")}}));
    EXPECT_EQ(object.at("outcome"), "response");
    EXPECT_EQ(object.at("status"), 404);
    EXPECT_EQ(object.at("headers").at("X-Answer"), "42");
    EXPECT_EQ(object.at("body"), "gone \xc3\xa9");
    EXPECT_EQ(object.at("redirect"), (Json{{"url", server.url("/json")}, {"count", 1}}));
    EXPECT_FALSE(object.contains("error"));
    EXPECT_FALSE(object.contains("body_base64"));
}

TEST_F(ToolJsonTest, TimesAreInMicrosecondsAndInOrder) {
    const Json timing = reportOf(Reply(200).body("x")).at("timing");
    const auto at = [&timing](const char* name) { return timing.at(name).get<std::int64_t>(); };
    EXPECT_GT(at("connect_us"), 0);
    EXPECT_GE(at("pretransfer_us"), at("connect_us"));
    EXPECT_GE(at("starttransfer_us"), at("pretransfer_us"));
    EXPECT_GE(at("total_us"), at("starttransfer_us"));
    EXPECT_EQ(at("appconnect_us"), 0);
    EXPECT_EQ(at("redirect_us"), 0);
    EXPECT_GE(at("namelookup_us"), 0);
}

TEST_F(ToolJsonTest, ABodyThatIsNoTextIsInBase64) {
    const auto encoded = [this](const std::string& body) { return reportOf(Reply(200).body(body)).at("body_base64"); };
    EXPECT_EQ(encoded("\xff"), "/w==");
    EXPECT_EQ(encoded("\xff\xfe"), "//4=");
    EXPECT_EQ(encoded(std::string("\xff\0\xfe", 3)), "/wD+");
    EXPECT_EQ(encoded(std::string("\xff\0\xfe\x01", 4)), "/wD+AQ==");
}

TEST_F(ToolJsonTest, AHeaderThatIsNoTextLeavesValidJson) {
    EXPECT_EQ(reportOf(Reply(200).header("X-Latin", "caf\xe9")).at("headers").at("X-Latin"), "caf\xef\xbf\xbd");
}

TEST_F(ToolJsonTest, WithAnOutputFileTheBodyIsThere) {
    TemporaryDirectory directory;
    server.enqueue(Reply(200).body("to the file"));
    const Json object = report({"get", server.url(), "-o", directory.path("file")});
    EXPECT_EQ(object.at("body_file"), directory.path("file"));
    EXPECT_FALSE(object.contains("body"));
    EXPECT_EQ(readWholeFile(directory.path("file")), "to the file");
}

TEST_F(ToolJsonTest, ARedirectThatIsNotFollowedNamesItsTarget) {
    server.enqueue(Reply::redirect("/elsewhere"));
    const Json object = report({"get", server.url(), "--no-redirects"});
    EXPECT_EQ(object.at("status"), 302);
    EXPECT_EQ(object.at("redirect").at("url"), server.url("/elsewhere"));
    server.enqueue(Reply(200));
    EXPECT_EQ(report({"get", server.url(), "--no-redirects"}).at("redirect").at("url"), nullptr);
}

TEST_F(ToolJsonTest, AFailedTransferIsAnError) {
    const ClosedPort port;
    const Json object = report({"get", port.url()});
    EXPECT_EQ(object.at("outcome"), "error");
    EXPECT_EQ(object.at("error").at("code"), 5);
    EXPECT_EQ(object.at("error").at("name"), "ConnectFailed");
    EXPECT_NE(object.at("error").at("message"), "");
    EXPECT_FALSE(object.contains("status"));
}

TEST_F(ToolJsonTest, TheObjectStandsInOneLine) {
    server.enqueue(Reply(200).body("two\nlines"));
    const std::string out = runTool({"get", server.url(), "--json", "--timing", "--include"}).out;
    EXPECT_EQ(out.find('\n'), out.size() - 1);
}

}  // namespace
}  // namespace kel::http::test
