// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ToolProcess.h"
#include "support/Files.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// What the tool sends.
class ToolBodyTest : public testing::Test {
 protected:
    // Runs the tool against the server, which answers once, and returns what that has seen.
    ReceivedRequest sent(const std::string& command, const std::vector<std::string>& options,
                         const std::string& input = {}) {
        server.enqueue(Reply(200).body("done"));
        std::vector<std::string> arguments = {command, server.url("/path?query")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const ToolResult result = runTool(arguments, {input, {}});
        EXPECT_EQ(result.exit_code, 0) << result.err;
        EXPECT_EQ(result.out, "done");
        const auto requests = server.requests();
        if (requests.empty()) throw std::runtime_error("nothing was sent: " + result.err);
        return requests.back();
    }

    std::string file(const std::string& name, const std::string& bytes) {
        writeWholeFile(directory.path(name), bytes);
        return directory.path(name);
    }

    ScriptedServer server;
    TemporaryDirectory directory;
};

TEST_F(ToolBodyTest, EachCommandSendsItsMethod) {
    EXPECT_EQ(sent("get", {}).method, "GET");
    EXPECT_EQ(sent("post", {}).method, "POST");
    EXPECT_EQ(sent("put", {}).method, "PUT");
    EXPECT_EQ(sent("patch", {}).method, "PATCH");
    EXPECT_EQ(sent("delete", {}).method, "DELETE");
    EXPECT_EQ(server.requests().front().target, "/path?query");
}

TEST_F(ToolBodyTest, ARequestWithoutBodyHasNoContentType) {
    for (const char* const command : {"get", "post", "put", "patch", "delete"}) {
        EXPECT_EQ(sent(command, {}).header("Content-Type"), std::nullopt) << command;
    }
}

TEST_F(ToolBodyTest, DataGoesWithTheTypeThatSuitsIt) {
    const ReceivedRequest form = sent("post", {"-d", "a=1&b=2"});
    EXPECT_EQ(form.body, "a=1&b=2");
    EXPECT_EQ(form.header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(sent("post", {"--data", R"( {"a": 1})"}).header("Content-Type"), "application/json");
    EXPECT_EQ(sent("patch", {"-d", "[1, 2]"}).header("Content-Type"), "application/json");
    EXPECT_EQ(sent("patch", {"-d", "{no json"}).header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(sent("put", {"-d", "text"}).header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(sent("delete", {"-d", "why"}).body, "why");
}

TEST_F(ToolBodyTest, AGivenContentTypeStands) {
    const ReceivedRequest request = sent("post", {"-d", "{}", "-H", "content-type: text/x-own"});
    EXPECT_EQ(request.headers("Content-Type"), std::vector<std::string>{"text/x-own"});
}

TEST_F(ToolBodyTest, DataComesFromAFileWithItsZeroBytes) {
    const std::string bytes("a\0b\0", 4);
    const ReceivedRequest request = sent("post", {"--data-file", file("body", bytes)});
    EXPECT_EQ(request.body, bytes);
    EXPECT_EQ(request.header("Content-Type"), "application/octet-stream");
}

TEST_F(ToolBodyTest, DataComesFromStandardInput) {
    const std::string bytes(200000, 'x');
    EXPECT_EQ(sent("patch", {"--data-file", "-"}, bytes).body, bytes);
}

TEST_F(ToolBodyTest, AnUploadSendsTheFile) {
    const std::string bytes(300000, 'y');
    const ReceivedRequest request = sent("put", {"--upload", file("upload", bytes)});
    EXPECT_EQ(request.body, bytes);
    EXPECT_EQ(request.header("Content-Length"), "300000");
    EXPECT_EQ(request.header("Content-Type"), "application/octet-stream");
}

TEST_F(ToolBodyTest, AFormHasItsFieldsAndFilesInOrder) {
    const std::string path = file("picture", "file content");
    const ReceivedRequest request =
        sent("post", {"-F", "title=a lake", "--form", "photo=@" + path + ";type=image/x-test", "-F", "empty="});
    EXPECT_THAT(request.header("Content-Type").value_or(""), StartsWith("multipart/form-data; boundary="));
    EXPECT_THAT(request.body, HasSubstr("name=\"title\"\r\n\r\na lake\r\n"));
    EXPECT_THAT(request.body, HasSubstr("name=\"photo\"; filename=\"" + path + "\"\r\nContent-Type: image/x-test\r\n"));
    EXPECT_THAT(request.body, HasSubstr("\r\n\r\nfile content\r\n"));
    EXPECT_LT(request.body.find("title"), request.body.find("photo"));
    EXPECT_LT(request.body.find("photo"), request.body.find("empty"));
}

TEST_F(ToolBodyTest, HeadersAreSentAndEmptyOnesLeftOut) {
    const ReceivedRequest request = sent("get", {"-H", "X-One: a: b ", "--header", "X-Two:2", "-H", "Accept:"});
    EXPECT_EQ(request.header("X-One"), "a: b");
    EXPECT_EQ(request.header("X-Two"), "2");
    EXPECT_EQ(request.header("Accept"), std::nullopt);
}

}  // namespace
}  // namespace kel::http::test
