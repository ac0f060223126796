// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "DownloadToolTest.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ToolResumeTest : public DownloadToolTest {
 protected:
    // A run that is interrupted after so many bytes at least.
    ToolResult interruptAfter(std::size_t bytes, int signal, const std::vector<std::string>& options = {}) {
        ToolProcess tool(words(options));
        server.awaitRequests(1);
        server.enqueue(Reply(200).body(whole.substr(0, bytes + 10000)).stallBeforeEnd(whole.substr(bytes + 10000)));
        awaitSize(part, bytes);
        tool.send(signal);
        return tool.wait();
    }

    const std::string whole = noise(200000);
};

TEST_F(ToolResumeTest, ACutBodyIsGoneOnWith) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body(whole.substr(0, 100000)).closeInsideBody(100000));
    const ToolResult cut = download({"--resume"});
    EXPECT_EQ(cut.exit_code, 3);
    EXPECT_THAT(cut.err, HasSubstr("97.7 KiB are in '" + part + "': the same command with --resume"));
    EXPECT_TRUE(readWholeFile(part) == whole.substr(0, 100000));
    EXPECT_EQ(readWholeFile(target), "old");

    EXPECT_EQ(download(rest(whole, 100000), {"--resume"}).exit_code, 0);
    EXPECT_EQ(server.requests().back().header("Range"), "bytes=100000-");
    EXPECT_TRUE(readWholeFile(target) == whole);
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

// Where a long has 32 bits libcurl can not be told where to begin.
TEST_F(ToolResumeTest, APartBeyondALongIsGoneOnWithOrLeftAsItIs) {
    writeWholeFile(part, "");
    std::filesystem::resize_file(part, std::uintmax_t{3} << 30U);
    const ToolResult result = download(Reply(416).header("Content-Range", "bytes */3221225472"), {"--resume"});
    if (sizeof(long) > 4) {
        EXPECT_EQ(result.exit_code, 0) << result.err;
        EXPECT_EQ(std::filesystem::file_size(target), std::uintmax_t{3} << 30U);
        return;
    }
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("is too large to be resumed on this system"));
    EXPECT_THAT(result.err, HasSubstr("start again without --resume"));
    EXPECT_THAT(result.err, HasSubstr("'" + part + "' is left as it is"));
    EXPECT_EQ(std::filesystem::file_size(part), std::uintmax_t{3} << 30U);
}

TEST_F(ToolResumeTest, ACutBodyIsRemovedUnlessItIsToBeKept) {
    const Reply cut = Reply(200).body("first half").closeInsideBody();
    const ToolResult removed = download(cut);
    EXPECT_EQ(removed.exit_code, 3);
    EXPECT_THAT(removed.err, HasSubstr("the 10 B that had arrived are removed; --keep-partial keeps them"));
    EXPECT_THAT(directory.names(), IsEmpty());
    const ToolResult kept = download(cut, {"--keep-partial"});
    EXPECT_EQ(kept.exit_code, 3);
    EXPECT_THAT(kept.err, HasSubstr("10 B are in '" + part + "': the same command with --resume"));
    EXPECT_EQ(readWholeFile(part), "first half");
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

TEST_F(ToolResumeTest, WhatHasNotBegunLeavesNothingAndSaysNothingOfIt) {
    const ToolResult result = download(Reply(200).closeBeforeHeaders(), {"--keep-partial"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, Not(HasSubstr("--resume")));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolResumeTest, CtrlCLeavesTheTargetAndSaysHowToGoOn) {
    writeWholeFile(target, "old");
    const ToolResult result = interruptAfter(100000, SIGINT);
    EXPECT_EQ(result.exit_code, 130);
    EXPECT_THAT(result.err, HasSubstr("cancelled"));
    EXPECT_THAT(result.err, HasSubstr("are in '" + part + "': the same command with --resume goes on"));
    EXPECT_EQ(readWholeFile(target), "old");
    const std::string arrived = readWholeFile(part);
    ASSERT_GE(arrived.size(), 100000U);
    EXPECT_TRUE(arrived == whole.substr(0, arrived.size()));

    EXPECT_EQ(download(rest(whole, arrived.size()), {"--resume"}).exit_code, 0);
    EXPECT_TRUE(readWholeFile(target) == whole);
}

TEST_F(ToolResumeTest, TerminationDoesTheSame) {
    const ToolResult result = interruptAfter(100000, SIGTERM, {"--json"});
    EXPECT_EQ(result.exit_code, 130);
    EXPECT_THAT(result.out, HasSubstr("\"outcome\":\"cancelled\""));
    EXPECT_THAT(result.out, HasSubstr("\"file\":\"" + part + '"'));
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

TEST_F(ToolResumeTest, CtrlCBeforeTheFirstByteLeavesNothing) {
    ToolProcess tool(words());
    server.awaitRequests(1);
    tool.send(SIGINT);
    const ToolResult result = tool.wait();
    EXPECT_EQ(result.exit_code, 130);
    EXPECT_THAT(result.err, Not(HasSubstr("--resume")));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolResumeTest, CtrlCInsideAnErrorPageLeavesNothingOfIt) {
    ToolProcess tool(words({"--keep-partial"}));
    server.awaitRequests(1);
    server.enqueue(Reply(404).body(noise(100000)).stallBeforeEnd());
    awaitSize(part, 90000);
    tool.send(SIGINT);
    EXPECT_EQ(tool.wait().exit_code, 130);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolResumeTest, AResumeWithoutAPartBeginsAtTheBeginning) {
    EXPECT_EQ(download(Reply(200).body("whole"), {"--resume"}).exit_code, 0);
    EXPECT_EQ(server.requests().back().header("Range"), std::nullopt);
    EXPECT_EQ(readWholeFile(target), "whole");
}

TEST_F(ToolResumeTest, AServerWithoutRangesLeavesThePartAndIsToldOf) {
    writeWholeFile(part, "first ");
    const ToolResult result = download(Reply(200).body("first second"), {"--resume"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("can not go on after 6 bytes"));
    EXPECT_THAT(result.err, HasSubstr("start again without --resume"));
    EXPECT_THAT(result.err, Not(HasSubstr("the same command")));
    EXPECT_EQ(readWholeFile(part), "first ");
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

TEST_F(ToolResumeTest, APartThatSomebodyChangesMeanwhileIsNotTheServersFault) {
    writeWholeFile(part, "first ");
    ToolProcess tool(words({"--resume"}));
    server.awaitRequests(1);
    std::filesystem::resize_file(part, 3);
    server.enqueue(rest("first second", 6));
    const ToolResult result = tool.wait();
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("it had 6 bytes when the rest was asked for, and has 3 bytes now"));
    EXPECT_THAT(result.err, Not(HasSubstr("the server can not go on")));
    EXPECT_THAT(result.err, HasSubstr("start again without --resume"));
    EXPECT_EQ(readWholeFile(part), "fir");
}

TEST_F(ToolResumeTest, AServerWithoutRangesWhoseFileIsNoLargerHasNothingToAdd) {
    writeWholeFile(part, "whole");
    EXPECT_EQ(download(Reply(200).body("whole"), {"--resume"}).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "whole");
}

TEST_F(ToolResumeTest, AnAnswerWithoutABodyIsNoCompletion) {
    for (const int status : {200, 204}) {
        writeWholeFile(part, "first ");
        const ToolResult result = download(Reply(status), {"--resume"});
        EXPECT_EQ(result.exit_code, 3);
        EXPECT_THAT(result.err, HasSubstr("does not go on after 6 bytes"));
        EXPECT_EQ(readWholeFile(part), "first ");
    }
}

TEST_F(ToolResumeTest, ACompletePartNeedsNoMore) {
    NginxServer nginx;
    nginx.writeFile("file", whole);
    writeWholeFile(part, whole);
    const ToolResult result = runTool({"download", nginx.url("/file"), target, "--resume"});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_THAT(nginx.awaitAccessLog(1), ElementsAre(HasSubstr(" 416")));
    EXPECT_TRUE(readWholeFile(target) == whole);
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolResumeTest, APartThatIsLargerThanTheFileDoesNotFit) {
    NginxServer nginx;
    nginx.writeFile("file", whole);
    writeWholeFile(part, whole + "more");
    const ToolResult result = runTool({"download", nginx.url("/file"), target, "--resume"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("its file has 200000 bytes"));
    EXPECT_THAT(result.err, HasSubstr("start again without --resume"));
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
    EXPECT_TRUE(readWholeFile(part) == whole + "more");
}

TEST_F(ToolResumeTest, ARefusedRangeWithoutASizeDoesNotFit) {
    writeWholeFile(part, "first");
    const ToolResult result = download(Reply(416).body("what?"), {"--resume"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("(status 416): it does not tell how large its file is"));
    EXPECT_EQ(readWholeFile(part), "first");
}

TEST_F(ToolResumeTest, APartOfAnotherFileIsNoCompletion) {
    writeWholeFile(part, "first ");
    const Reply other = Reply(206).header("Content-Range", "bytes 6-11/1000").body("second");
    const ToolResult result = download(other, {"--resume"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("the server's file has 1000 bytes, but 12 are here"));
    EXPECT_THAT(result.err, HasSubstr("12 B are in '" + part + "': the same command with --resume"));
    EXPECT_EQ(readWholeFile(part), "first second");
    const Reply unsaid = Reply(206).header("Content-Range", "bytes 12-14/*").body("end");
    EXPECT_THAT(download(unsaid, {"--resume"}).err, HasSubstr("does not tell how large"));
    EXPECT_EQ(readWholeFile(part), "first second");
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

TEST_F(ToolResumeTest, MoreThanTheWholeFileIsDroppedAgain) {
    writeWholeFile(part, "first ");
    const ToolResult result =
        download(Reply(206).header("Content-Range", "bytes 6-11/10").body("second"), {"--resume"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("start again without --resume"));
    EXPECT_THAT(result.err, HasSubstr("'" + part + "' is left as it is"));
    EXPECT_EQ(readWholeFile(part), "first ");
}

TEST_F(ToolResumeTest, APartFromAnotherPlaceIsRefused) {
    writeWholeFile(part, "first ");
    const Reply other = Reply(206).header("Content-Range", "bytes 3-11/12").body("st second");
    EXPECT_EQ(download(other, {"--resume"}).exit_code, 3);
    EXPECT_EQ(readWholeFile(part), "first ");
}

// Libcurl sees no fault in it when nothing was asked for in particular.
TEST_F(ToolResumeTest, APartThatNobodyAskedForIsDropped) {
    const Reply middle = Reply(206).header("Content-Range", "bytes 5-14/15").body("56789ABCDE");
    const ToolResult whole_part = download(middle, {"--resume"});
    EXPECT_EQ(whole_part.exit_code, 3);
    EXPECT_THAT(whole_part.err, HasSubstr("the server sent its file from byte 5 on, but 0 are here"));
    EXPECT_THAT(directory.names(), IsEmpty());
    const ToolResult cut = download(Reply(middle).closeInsideBody(5), {"--resume"});
    EXPECT_EQ(cut.exit_code, 3);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolResumeTest, ARedirectThatNobodyFollowsIsToldAsOne) {
    writeWholeFile(part, "first ");
    const Reply redirect = Reply(302).header("Location", server.url("/other")).body("over there");
    const ToolResult result = download(redirect, {"--resume", "--no-redirects"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("the server answered with status 302"));
    EXPECT_EQ(readWholeFile(part), "first ");
}

TEST_F(ToolResumeTest, AWholePartIsOneWhateverThePageThatSaysSo) {
    writeWholeFile(part, "whole");
    const Reply no_more = Reply(416).header("Content-Range", "bytes */5").body(noise(200));
    const ToolResult result = download(no_more, {"--resume", "--size-limit", "100"});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(readWholeFile(target), "whole");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolResumeTest, AnAnswerThatNeverComesAfterALoginIsNoRefusal) {
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"r\""));
    // libcurl tries once more when a connection that was used before says nothing.
    server.enqueue(Reply(200).closeBeforeHeaders());
    server.enqueue(Reply(200).closeBeforeHeaders());
    const ToolResult result = download({"-u", "somebody", "--password", "secret", "--keep-partial"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, Not(HasSubstr("401")));
}

TEST_F(ToolResumeTest, AnOlderPartThatIsDroppedIsToldOf) {
    writeWholeFile(part, "first ");
    const ToolResult result = download(Reply(200).body("whole"));
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.err, HasSubstr("the 6 B of an earlier run in '" + part + "' are dropped"));
    EXPECT_EQ(readWholeFile(target), "whole");
}

TEST_F(ToolResumeTest, ATimeOutKeepsWhatIsToBeKept) {
    writeWholeFile(part, "first ");
    const Reply stalling = Reply(206).header("Content-Range", "bytes 6-15/16").body("0123456789").stallBeforeEnd();
    const ToolResult result = download(stalling, {"--timeout", "2s", "--resume"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("give it longer with --timeout"));
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

}  // namespace
}  // namespace kel::http::test
