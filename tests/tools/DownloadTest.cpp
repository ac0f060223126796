// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "DownloadToolTest.h"
#include "support/NginxServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ToolDownloadSizeTest : public testing::TestWithParam<std::size_t> {};

TEST_P(ToolDownloadSizeTest, ArrivesWhole) {
    NginxServer server;
    TemporaryDirectory directory;
    const std::string bytes = noise(GetParam());
    server.writeFile("image.bin", bytes);
    const ToolResult result = runTool({"download", server.url("/image.bin"), directory.path("file")});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(readWholeFile(directory.path("file")) == bytes);
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

INSTANTIATE_TEST_SUITE_P(Bytes, ToolDownloadSizeTest,
                         testing::Values(0U, 1U, 16383U, 16384U, 16385U, 5U * 1024U * 1024U));

class ToolDownloadTest : public DownloadToolTest {};

TEST_F(ToolDownloadTest, ReplacesAnOldFile) {
    writeWholeFile(target, "the old content");
    EXPECT_EQ(download(Reply(200).body("new")).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "new");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolDownloadTest, TheOldFileIsThereUntilTheNewOneIsWhole) {
    writeWholeFile(target, "old");
    ToolProcess tool(words());
    server.awaitRequests(1);
    server.enqueue(Reply(200).body(noise(100000)).stallBeforeEnd());
    awaitSize(part, 90000);
    EXPECT_EQ(readWholeFile(target), "old");
    server.release();
    EXPECT_EQ(tool.wait().exit_code, 0);
    EXPECT_EQ(readWholeFile(target), noise(100000) + "the rest");
}

TEST_F(ToolDownloadTest, AnAnswerWithoutABodyMakesAnEmptyFile) {
    writeWholeFile(target, "old");
    EXPECT_EQ(download(Reply(204)).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolDownloadTest, BodiesWithoutALengthArriveWhole) {
    EXPECT_EQ(download(Reply(200).chunked().body("first ").body("second")).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "first second");
    EXPECT_EQ(download(Reply(200).untilClose().body("until the end")).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "until the end");
}

TEST_F(ToolDownloadTest, WhatAnEarlierRunHasLeftIsDroppedWithoutResume) {
    writeWholeFile(part, "of an earlier run");
    EXPECT_EQ(download(Reply(200).body("new")).exit_code, 0);
    EXPECT_EQ(server.requests().front().header("Range"), std::nullopt);
    EXPECT_EQ(readWholeFile(target), "new");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolDownloadTest, WithoutAPathTheUrlNamesTheFile) {
    server.enqueue(Reply(200).body("by its name"));
    ToolProcess::Input here;
    here.folder = directory.path();
    const ToolResult result = runTool({"download", server.url("/folder/my%20image.bin?version=2")}, here);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(readWholeFile(directory.path("my image.bin")), "by its name");
}

TEST_F(ToolDownloadTest, AUrlWithoutSchemeIsHttp) {
    server.enqueue(Reply(200).body("plain"));
    EXPECT_EQ(runTool({"download", server.authority() + "/file", target}).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "plain");
}

TEST_F(ToolDownloadTest, RedirectsAreFollowed) {
    server.onRequest([](const ReceivedRequest& request) {
        return request.target == "/file" ? Reply::redirect("/to").body("this page has moved") : Reply(200).body("here");
    });
    EXPECT_EQ(download().exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "here");
}

TEST_F(ToolDownloadTest, HeadersAndLoginAreSent) {
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"kel\"").body("who are you?"));
    EXPECT_EQ(download(Reply(200).body("welcome"), {"-H", "X-Wish: this one", "-u", "me", "--password", "x"}).exit_code,
              0);
    EXPECT_EQ(readWholeFile(target), "welcome");
    EXPECT_EQ(server.requests().back().header("X-Wish"), "this one");
    EXPECT_EQ(server.requests().back().header("Authorization"), "Basic bWU6eA==");
    EXPECT_EQ(server.requests().back().header("Content-Type"), std::nullopt);
}

TEST_F(ToolDownloadTest, TlsIsCheckedAsElsewhere) {
    NginxServer::Options options;
    options.tls = true;
    NginxServer secure(options);
    secure.writeFile("file", "over TLS");
    const std::vector<std::string> arguments = {"download", secure.tlsUrl("/file"), target, "--device-cert-dir",
                                                TestCertificates::shared().device()};
    const ToolResult refused = runTool(arguments);
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_THAT(refused.err, HasSubstr("--ca-file"));
    EXPECT_THAT(directory.names(), IsEmpty());
    std::vector<std::string> trusting = arguments;
    trusting.insert(trusting.end(), {"--ca-file", TestCertificates::shared().caFile()});
    EXPECT_EQ(runTool(trusting).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "over TLS");
}

TEST_F(ToolDownloadTest, ALimitedRateAndAnIpVersionDeliverTheWholeFile) {
    const std::string slowly = noise(3000000);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(download(Reply(200).body(slowly), {"--limit-rate", "1M", "-4"}).exit_code, 0);
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_TRUE(readWholeFile(target) == slowly);
}

TEST_F(ToolDownloadTest, TimingShowsWhereTheTimeWent) {
    const ToolResult result = download(Reply(200).body("x"), {"--timing"});
    EXPECT_THAT(result.err, HasSubstr("receive"));
}

TEST_F(ToolDownloadTest, VerboseLogsBesideTheLines) {
    const ToolResult result = download(Reply(200).body("x"), {"-v"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.err, HasSubstr("GET"));
    EXPECT_THAT(result.err, HasSubstr("Incoming <= 200"));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("[header IN]")));
    EXPECT_THAT(result.err, HasSubstr("kel-http: " + target + ": 1 B in 0:"));
}

}  // namespace
}  // namespace kel::http::test
