// SPDX-License-Identifier: MIT
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "DownloadToolTest.h"
#include "support/ClosedPort.h"
#include "support/Emulator.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Json = nlohmann::json;

// One object a line, by the path of the URL.
std::map<std::string, Json> reports(const std::string& out) {
    std::map<std::string, Json> objects;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        const Json object = Json::parse(line);
        const std::string url = object.at("request").at("url");
        objects[url.substr(url.rfind('/'))] = object;
    }
    return objects;
}

class ToolSeveralDownloadsTest : public DownloadToolTest {
 protected:
    ToolSeveralDownloadsTest() {
        server.onRequest([](const ReceivedRequest& request) {
            if (request.target == "/missing") return Reply(404).body("page");
            if (request.target == "/cut") return Reply(200).body("half").closeInsideBody();
            return Reply(200).body("this is " + request.target);
        });
    }

    // "URL PATH" for each name.
    std::vector<std::string> pairs(const std::vector<std::string>& names,
                                   const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments = {"download"};
        for (const std::string& name : names) {
            arguments.push_back(server.url('/' + name));
            arguments.push_back(directory.path(name));
        }
        arguments.insert(arguments.end(), options.begin(), options.end());
        return arguments;
    }
};

TEST_F(ToolSeveralDownloadsTest, AllArrive) {
    const ToolResult result = runTool(pairs({"a", "b", "c"}, {"--sha256"}));
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(directory.names(), ElementsAre("a", "b", "c"));
    EXPECT_EQ(readWholeFile(directory.path("b")), "this is /b");
    EXPECT_THAT(result.out, HasSubstr("  " + directory.path("a") + '\n'));
    EXPECT_THAT(result.out, HasSubstr("  " + directory.path("c") + '\n'));
}

TEST_F(ToolSeveralDownloadsTest, OneThatStallsHoldsUpNoOther) {
    server.onRequest([](const ReceivedRequest& request) {
        return request.target == "/slow" ? Reply(200).body("slow ").stallBeforeEnd() : Reply(200).body("quick");
    });
    ToolProcess tool(pairs({"slow", "quick"}, {"--json"}));
    tool.awaitOutputLines(1);
    EXPECT_EQ(readWholeFile(directory.path("quick")), "quick");
    server.release();
    EXPECT_EQ(tool.wait().exit_code, 0);
    EXPECT_EQ(readWholeFile(directory.path("slow")), "slow the rest");
}

TEST_F(ToolSeveralDownloadsTest, PathsMayBeLeftOut) {
    ToolProcess::Input here;
    here.folder = directory.path();
    EXPECT_EQ(runTool({"download", server.url("/a"), server.url("/b"), "other", server.url("/c")}, here).exit_code, 0);
    EXPECT_THAT(directory.names(), ElementsAre("a", "c", "other"));
}

TEST_F(ToolSeveralDownloadsTest, OneThatFailsHoldsUpNoOtherAndIsTold) {
    const ToolResult result = runTool(pairs({"a", "missing", "b"}));
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("download " + server.url("/missing")));
    EXPECT_THAT(directory.names(), ElementsAre("a", "b"));
}

TEST_F(ToolSeveralDownloadsTest, TheExitCodeIsThatOfTheFirstWhichFailed) {
    EXPECT_EQ(runTool(pairs({"a", "cut", "missing"})).exit_code, 3);
    EXPECT_EQ(runTool(pairs({"a", "missing", "cut"})).exit_code, 2);
}

TEST_F(ToolSeveralDownloadsTest, ALocalErrorOfOneComesBeforeAnythingIsSentOrDropped) {
    writeWholeFile(directory.path("a.part"), "of an earlier run");
    const ToolResult result =
        runTool({"download", server.url("/a"), directory.path("a"), server.url("/b"), directory.path("no/b")});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_THAT(directory.names(), ElementsAre("a.part"));
    EXPECT_EQ(readWholeFile(directory.path("a.part")), "of an earlier run");
}

TEST_F(ToolSeveralDownloadsTest, CtrlCCancelsAllThatAreRunning) {
    server.onRequest([](const ReceivedRequest& request) {
        if (request.target == "/quick") return Reply(200).body("quick");
        return Reply(200).body(noise(100000)).stallBeforeEnd();
    });
    ToolProcess tool(pairs({"a", "quick", "b"}, {"--json"}));
    server.awaitRequests(3);
    awaitSize(directory.path("a.part"), 90000);
    awaitSize(directory.path("b.part"), 90000);
    tool.awaitOutputLines(1);
    tool.send(SIGINT);
    const ToolResult result = tool.wait();
    EXPECT_EQ(result.exit_code, 130);
    auto objects = reports(result.out);
    EXPECT_EQ(objects["/quick"].at("outcome"), "saved");
    EXPECT_EQ(objects["/a"].at("outcome"), "cancelled");
    EXPECT_EQ(objects["/b"].at("outcome"), "cancelled");
    EXPECT_THAT(result.err, HasSubstr("are in '" + directory.path("a.part") + "': the same command with --resume"));
    EXPECT_THAT(result.err, HasSubstr("are in '" + directory.path("b.part") + "': the same command with --resume"));
    EXPECT_THAT(directory.names(), ElementsAre("a.part", "b.part", "quick"));
}

// The one that ends cannot be told of; the other one is cancelled, and told of where that is possible.
TEST_F(ToolSeveralDownloadsTest, NobodyIsForgottenWhenStandardOutputTakesNothing) {
    server.onRequest([](const ReceivedRequest& request) {
        if (request.target == "/stalled") return Reply(200).body("half").stallBeforeEnd();
        return Reply(200).body("whole");
    });
    const std::string errors = directory.path("errors");
    std::string command = "env -u http_proxy -u all_proxy";
    for (const std::string& word : commandOf("kel-http")) command += " " + word;
    for (const std::string& word : pairs({"stalled", "a"}, {"--json"})) command += " '" + word + "'";
    const int status = std::system((command + " >/dev/full 2>'" + errors + "'").c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 4);
    EXPECT_EQ(readWholeFile(directory.path("a")), "whole");
    EXPECT_THAT(readWholeFile(errors), HasSubstr("/stalled: cancelled"));
    EXPECT_THAT(readWholeFile(errors), HasSubstr("No space left"));
}

class ToolDownloadJsonTest : public ToolSeveralDownloadsTest {};

TEST_F(ToolDownloadJsonTest, EachUrlHasAnObjectInALineOfItsOwn) {
    const ToolResult result = runTool(pairs({"a", "missing"}, {"--json"}));
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
    EXPECT_EQ(reports(result.out).size(), 2U);
}

TEST_F(ToolDownloadJsonTest, ASavedFileIsTold) {
    const ToolResult result = runTool(pairs({"a"}, {"--json", "--sha256"}));
    EXPECT_EQ(result.err, "");
    const Json object = Json::parse(result.out);
    EXPECT_EQ(object.at("request"), (Json{{"method", "GET"}, {"url", server.url("/a")}}));
    EXPECT_EQ(object.at("outcome"), "saved");
    EXPECT_EQ(object.at("exit_code"), 0);
    EXPECT_EQ(object.at("path"), directory.path("a"));
    EXPECT_EQ(object.at("file"), directory.path("a"));
    EXPECT_EQ(object.at("bytes"), 10);
    EXPECT_EQ(object.at("resumed_from"), 0);
    EXPECT_EQ(object.at("status"), 200);
    EXPECT_EQ(object.at("sha256"), "fb46d41e6c631082724f1573b7fbd73ead9a93bceff04673f39c9dde031ab670");
    EXPECT_GT(object.at("timing").at("total_us"), 0);
    EXPECT_FALSE(object.contains("error"));
}

TEST_F(ToolDownloadJsonTest, AResumeTellsWhereItBegan) {
    writeWholeFile(directory.path("a.part"), "this");
    server.enqueue(rest("this is /a", 4));
    const Json object = Json::parse(runTool(pairs({"a"}, {"--json", "--resume"})).out);
    EXPECT_EQ(object.at("resumed_from"), 4);
    EXPECT_EQ(object.at("bytes"), 10);
    EXPECT_EQ(object.at("status"), 206);
    EXPECT_FALSE(object.contains("sha256"));
}

TEST_F(ToolDownloadJsonTest, ErrorsHaveANameAMessageAndAdvice) {
    const ClosedPort closed;
    std::vector<std::string> arguments = pairs({"missing", "cut"}, {"--json", "--keep-partial"});
    arguments.insert(arguments.end(), {closed.url() + "refused", directory.path("refused")});
    auto objects = reports(runTool(arguments).out);
    EXPECT_EQ(objects["/missing"].at("outcome"), "error");
    EXPECT_EQ(objects["/missing"].at("exit_code"), 2);
    EXPECT_EQ(objects["/missing"].at("status"), 404);
    EXPECT_EQ(objects["/missing"].at("file"), nullptr);
    EXPECT_EQ(objects["/missing"].at("error").at("name"), "Status");
    EXPECT_EQ(objects["/cut"].at("error").at("name"), "Other");
    EXPECT_EQ(objects["/cut"].at("file"), directory.path("cut.part"));
    EXPECT_EQ(objects["/cut"].at("bytes"), 4);
    EXPECT_THAT(objects["/cut"].at("error").at("advice"), HasSubstr("--resume"));
    EXPECT_EQ(objects["/refused"].at("error").at("name"), "ConnectFailed");
    EXPECT_EQ(objects["/refused"].at("exit_code"), 3);
    EXPECT_FALSE(objects["/refused"].contains("status"));
}

TEST_F(ToolDownloadJsonTest, AFileOfAnotherChecksumIsAnErrorWithThatName) {
    const std::string wrong(64, '0');
    const Json object = Json::parse(runTool(pairs({"a"}, {"--json", "--sha256", wrong})).out);
    EXPECT_EQ(object.at("exit_code"), 5);
    EXPECT_EQ(object.at("error").at("name"), "Checksum");
    EXPECT_NE(object.at("sha256"), wrong);
}

TEST_F(ToolDownloadJsonTest, AnIncompleteFileIsAnErrorWithThatName) {
    server.enqueue(Reply(206).body("part"));
    EXPECT_EQ(Json::parse(runTool(pairs({"a"}, {"--json"})).out).at("error").at("name"), "Incomplete");
}

}  // namespace
}  // namespace kel::http::test
