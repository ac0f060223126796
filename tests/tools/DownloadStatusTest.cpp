// SPDX-License-Identifier: MIT
#include "DownloadToolTest.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ToolDownloadStatusTest : public DownloadToolTest {};

TEST_F(ToolDownloadStatusTest, AnErrorPageReplacesNoGoodFile) {
    writeWholeFile(target, "good");
    const ToolResult result = download(Reply(404).body("this page explains a lot"));
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.err, "kel-http: download " + server.url("/file") +
                              ": the server answered with status 404, nothing is saved\n");
    EXPECT_EQ(readWholeFile(target), "good");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolDownloadStatusTest, AnErrorWithoutAPageMakesNoFile) {
    EXPECT_EQ(download(Reply(503)).exit_code, 2);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolDownloadStatusTest, AnErrorPageIsNoPartWhateverIsToBeKept) {
    EXPECT_EQ(download(Reply(500).body("page"), {"--keep-partial"}).exit_code, 2);
    EXPECT_EQ(download(Reply(500).body("page"), {"--resume"}).exit_code, 2);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolDownloadStatusTest, AnErrorPageIsNotAddedToAPart) {
    writeWholeFile(part, "first ");
    for (const Reply& reply : {Reply(404).body("page"), Reply(404), Reply(404).chunked().body("page")}) {
        const ToolResult result = download(reply, {"--resume"});
        EXPECT_EQ(result.exit_code, 2);
        EXPECT_THAT(result.err, HasSubstr("the server answered with status 404, nothing is saved"));
        EXPECT_THAT(result.err, HasSubstr("6 B are in '" + part + "': the same command with --resume"));
        EXPECT_EQ(readWholeFile(part), "first ");
    }
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

TEST_F(ToolDownloadStatusTest, AnEmptyPartStaysEmpty) {
    writeWholeFile(part, "");
    EXPECT_EQ(download(Reply(404).body("page"), {"--resume"}).exit_code, 2);
    EXPECT_EQ(readWholeFile(part), "");
}

TEST_F(ToolDownloadStatusTest, AnErrorPageThatBreaksOffIsNoPartEither) {
    const Reply cut = Reply(404).body("half a page").closeInsideBody();
    const ToolResult result = download(cut, {"--keep-partial"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("status 404"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolDownloadStatusTest, ARedirectThatIsNotFollowedSavesNothing) {
    writeWholeFile(target, "good");
    const ToolResult result = download(Reply::redirect("/elsewhere").body("moved"), {"--no-redirects"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("the server answered with status 302, nothing is saved"));
    EXPECT_EQ(readWholeFile(target), "good");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolDownloadStatusTest, AnUnwantedPartIsNoWholeFile) {
    const Reply unasked = Reply(206).header("Content-Range", "bytes 0-3/1000").body("part");
    EXPECT_EQ(download(unasked).exit_code, 3);
    EXPECT_EQ(download(Reply(206).body("part")).exit_code, 3);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolDownloadStatusTest, AnInterimAnswerDoesNotCount) {
    EXPECT_EQ(download(Reply(200).interim(103, {"Content-Length: 7"}).chunked().body("whole")).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "whole");
}

TEST_F(ToolDownloadStatusTest, TheSizeLimitHoldsForTheWholeFile) {
    const ToolResult announced = download(Reply(200).body(std::string(2000, 'x')), {"--size-limit", "1K"});
    EXPECT_EQ(announced.exit_code, 3);
    EXPECT_THAT(announced.err, HasSubstr("--size-limit"));
    const ToolResult unannounced = download(Reply(200).chunked().body(std::string(2000, 'x')), {"--size-limit", "1K"});
    EXPECT_EQ(unannounced.exit_code, 3);
    EXPECT_THAT(unannounced.err, HasSubstr("the file is larger than --size-limit"));
    EXPECT_THAT(directory.names(), IsEmpty());
    EXPECT_EQ(download(Reply(200).body("four"), {"--size-limit", "4"}).exit_code, 0);
}

TEST_F(ToolDownloadStatusTest, TheSizeLimitCountsWhatAnEarlierRunHasLeft) {
    writeWholeFile(part, "first ");
    const Reply missing = rest("first second", 6);
    const ToolResult refused = download(missing, {"--resume", "--size-limit", "11"});
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_EQ(readWholeFile(part), "first ");
    EXPECT_EQ(download(missing, {"--resume", "--size-limit", "12"}).exit_code, 0);
    EXPECT_EQ(readWholeFile(target), "first second");
}

TEST_F(ToolDownloadStatusTest, APartBeyondTheSizeLimitIsToldBeforeAnythingIsSent) {
    writeWholeFile(part, "first ");
    const ToolResult result = download({"--resume", "--size-limit", "5"});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr("is larger than --size-limit already"));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_EQ(readWholeFile(part), "first ");
}

TEST_F(ToolDownloadStatusTest, ARefusedErrorPageBeyondTheSizeLimitIsToldAsAnError) {
    const ToolResult result = download(Reply(404).body("a page of 19 bytes."), {"--size-limit", "4"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, HasSubstr("status 404"));
}

}  // namespace
}  // namespace kel::http::test
