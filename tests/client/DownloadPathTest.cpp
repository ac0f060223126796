// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <iterator>

#include "client/DownloadTest.h"
#include "client/FolderWatch.h"
#include "fixture/LogCapture.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;

namespace fs = std::filesystem;

class DownloadPathTest : public DownloadTest {
 protected:
    DownloadPathTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("bytes"); });
    }

    ResponseData responseAt(const std::string& path) { return responseOf(startDownload(get(), path)); }
};

TEST_F(DownloadPathTest, ARelativePathBelongsToTheProcessesFolder) {
    EXPECT_EQ(responseAt(fs::relative(target).string()).status, 200);
    EXPECT_EQ(content(), "bytes");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadPathTest, ARelativePathMayBeResumed) {
    RequestConfig config = resuming();
    const std::string relative = fs::relative(target).string();
    EXPECT_EQ(responseOf(startDownload(config, relative)).status, 200);
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body(" more"));
    EXPECT_EQ(responseOf(startDownload(config, relative)).status, 206);
    EXPECT_EQ(content(), "bytes more");
}

// --- '%' ---

TEST_F(DownloadPathTest, APercentSignInTheNameStaysInTheTargetOnly) {
    FolderWatch watch(directory.path());
    EXPECT_EQ(responseAt(directory.path("100%.bin")).status, 200);
    EXPECT_EQ(readWholeFile(directory.path("100%.bin")), "bytes");
    const std::string part = "100[0123456789abdcef]\\.bin\\.downloading-[0123456789abdcef]{8}";
    EXPECT_THAT(watch.events(), ElementsAre(testing::MatchesRegex("create " + part),
                                            testing::MatchesRegex("from " + part), "to 100%.bin"));
}

TEST_F(DownloadPathTest, APercentSignInTheFolderIsAWriteFailure) {
    const std::string folder = directory.path("100%");
    fs::create_directory(folder);
    EXPECT_EQ(errorOf(startDownload(get(), folder + "/f.bin")).failure, ClientFailure::WriteFailed);
    server.enqueue(Reply(200));
    EXPECT_EQ(errorOf(startDownload(get(), folder + "/f.bin")).message, "Failed to write empty response");
    EXPECT_TRUE(fs::is_empty(folder));
}

// The temporary file takes its way through a folder whose name happens to fit.
TEST_F(DownloadPathTest, APercentSignInTheFolderDoesNoHarmWhereAllItsReadingsExist) {
    const std::string folder = directory.path("100%");
    fs::create_directory(folder);
    for (const char digit : std::string("0123456789abcdef")) fs::create_directory(directory.path("100") + digit);
    EXPECT_EQ(responseAt(folder + "/f.bin").status, 200);
    EXPECT_EQ(readWholeFile(folder + "/f.bin"), "bytes");
    for (const char digit : std::string("0123456789abcdef")) {
        EXPECT_TRUE(fs::is_empty(directory.path("100") + digit)) << digit;
    }
}

TEST_F(DownloadPathTest, APercentSignIsNothingSpecialToAResumedDownload) {
    const std::string folder = directory.path("100%");
    fs::create_directory(folder);
    EXPECT_EQ(responseOf(startDownload(resuming(), folder + "/f%.bin")).status, 200);
    EXPECT_EQ(readWholeFile(folder + "/f%.bin"), "bytes");
}

// --- length ---

// A filesystem's 255 less what the temporary name has behind the target's.
TEST_F(DownloadPathTest, ANameWithoutRoomForATemporaryOneIsAWriteFailure) {
    EXPECT_EQ(responseAt(directory.path(std::string(234, 'n'))).status, 200);
    const LogCapture log("HttpClient", 1);
    EXPECT_EQ(errorOf(startDownload(get(), directory.path(std::string(235, 'm')))).failure, ClientFailure::WriteFailed);
    EXPECT_TRUE(log.contains("writeFunction: Receiving data failed: 'Failed to open file'"));
    EXPECT_THAT(directory.names(), ElementsAre(std::string(234, 'n')));
}

TEST_F(DownloadPathTest, AnEmptyFileLeavesMoreRoomForItsName) {
    server.enqueue(Reply(200));
    EXPECT_EQ(responseAt(directory.path(std::string(246, 'n'))).status, 200);
    server.enqueue(Reply(200));
    EXPECT_EQ(errorOf(startDownload(get(), directory.path(std::string(247, 'm')))).message,
              "Failed to write empty response");
}

// --- links ---

TEST_F(DownloadPathTest, ALinkIsReplacedAndWhatItPointsToStays) {
    const std::string pointed_to = directory.path("elsewhere");
    writeWholeFile(pointed_to, "old");
    fs::create_symlink(pointed_to, target);
    EXPECT_EQ(responseAt(target).status, 200);
    EXPECT_FALSE(fs::is_symlink(target));
    EXPECT_EQ(content(), "bytes");
    EXPECT_EQ(readWholeFile(pointed_to), "old");
}

TEST_F(DownloadPathTest, ALinkToNothingIsReplaced) {
    fs::create_symlink(directory.path("nothing"), target);
    EXPECT_EQ(responseAt(target).status, 200);
    EXPECT_FALSE(fs::is_symlink(target));
    EXPECT_EQ(content(), "bytes");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadPathTest, AResumedDownloadFollowsALink) {
    const std::string pointed_to = directory.path("elsewhere");
    writeWholeFile(pointed_to, "01234");
    fs::create_symlink(pointed_to, target);
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_TRUE(fs::is_symlink(target));
    EXPECT_EQ(readWholeFile(pointed_to), "0123456789");
}

TEST_F(DownloadPathTest, AFileThatIsBeingReadIsReplacedAndReadOn) {
    writeWholeFile(target, "old");
    std::ifstream reader(target);
    EXPECT_EQ(responseAt(target).status, 200);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
    EXPECT_EQ(content(), "bytes");
}

// --- two at once ---

TEST_F(DownloadPathTest, OfTwoDownloadsToOneTargetTheLastToEndStays) {
    server.enqueue(Reply(200).body("first ").stallBeforeEnd("first"));
    server.enqueue(Reply(200).body("second ").stallBeforeEnd("second"));
    const Client::RequestId first = startDownload(get());
    server.awaitRequests(1);
    const Client::RequestId second = startDownload(get());
    recorder.awaitProgress(first);
    recorder.awaitProgress(second);
    EXPECT_THAT(directory.names(), ElementsAre(isPart(), isPart()));
    server.release();
    responseOf(first);
    EXPECT_EQ(content(), "first first");
    server.release();
    responseOf(second);
    EXPECT_EQ(content(), "second second");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

}  // namespace
}  // namespace kel::http::test
