// SPDX-License-Identifier: MIT
#include <curl/curl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "client/DownloadTest.h"
#include "fixture/LogCapture.h"
#include "support/Sockets.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// Takes the superuser's rights from the calling thread only: no permission would keep it out.
void giveUpRights() {
    __user_cap_header_struct thread{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
    if (syscall(SYS_capget, &thread, rights.data()) != 0) throwErrno("capget");
    for (auto& set : rights) set.effective = 0;
    if (syscall(SYS_capset, &thread, rights.data()) != 0) throwErrno("capset");
}

// What becomes of the target's folder, and what is in its place.
class DownloadFolderTest : public DownloadTest {
 protected:
    DownloadFolderTest() {
        std::filesystem::create_directory(folder);
        // The engine's thread alone opens files and moves them.
        onEngineThread(giveUpRights);
    }
    ~DownloadFolderTest() override { chmod(folder.c_str(), 0755); }

    Client::RequestId startInFolder(const RequestConfig& config) { return startDownload(config, inner); }

    static void expectNotOpened(const ErrorData& told) {
        EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
        EXPECT_EQ(told.message, curl_easy_strerror(CURLE_WRITE_ERROR));
    }

    static void expectWriteFailure(const ErrorData& told, const std::string& text) {
        EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
        EXPECT_EQ(told.message, text);
    }

    static std::vector<std::string> namesIn(const std::string& path) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    const std::string folder = directory.path("folder");
    const std::string inner = folder + "/f.bin";
};

// --- a folder that is not there ---

TEST_F(DownloadFolderTest, MissingItIsAWriteFailure) {
    server.enqueue(Reply(200).body("bytes"));
    const LogCapture log("HttpClient", 1);
    expectNotOpened(errorOf(startDownload(get(), directory.path("missing/f.bin"))));
    EXPECT_TRUE(log.contains("writeFunction: Receiving data failed: 'Failed to open file'"));
    EXPECT_THAT(directory.names(), ElementsAre("folder"));
}

TEST_F(DownloadFolderTest, MissingItIsAWriteFailureForAnEmptyFileToo) {
    server.enqueue(Reply(200));
    expectWriteFailure(errorOf(startDownload(get(), directory.path("missing/f.bin"))),
                       "Failed to write empty response");
    EXPECT_THAT(directory.names(), ElementsAre("folder"));
}

TEST_F(DownloadFolderTest, MissingItIsAWriteFailureOfAResumedDownloadToo) {
    server.enqueue(Reply(200).body("bytes"));
    expectNotOpened(errorOf(startDownload(resuming(), directory.path("missing/f.bin"))));
    EXPECT_THAT(directory.names(), ElementsAre("folder"));
}

TEST_F(DownloadFolderTest, VanishedBeforeTheFirstByteItIsAWriteFailure) {
    server.enqueue(Reply(200).stallBeforeHeaders().body("bytes"));
    const Client::RequestId id = startInFolder(get());
    server.awaitRequests(1);
    std::filesystem::remove_all(folder);
    server.release();
    expectNotOpened(errorOf(id));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadFolderTest, VanishedInsideTheFileItIsAWriteFailureAtTheEnd) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = startInFolder(get());
    recorder.awaitProgress(id);
    std::filesystem::remove_all(folder);
    const LogCapture log("CurlRequest", 1);
    server.release();
    expectWriteFailure(errorOf(id), inner);
    EXPECT_TRUE(log.contains("notifyDataEnd: Rename failed - No such file or directory"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadFolderTest, VanishedAndMadeAgainItStaysEmpty) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = startInFolder(get());
    recorder.awaitProgress(id);
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    server.release();
    expectWriteFailure(errorOf(id), inner);
    EXPECT_THAT(namesIn(folder), IsEmpty());
}

// --- a folder that may not be written to ---

TEST_F(DownloadFolderTest, ReadOnlyItIsAWriteFailureAndTheOldFileStays) {
    writeWholeFile(inner, "old");
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    server.enqueue(Reply(200).body("bytes"));
    expectNotOpened(errorOf(startInFolder(get())));
    EXPECT_THAT(namesIn(folder), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(inner), "old");
}

TEST_F(DownloadFolderTest, ReadOnlyItIsAWriteFailureForAnEmptyFileToo) {
    writeWholeFile(inner, "old");
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    server.enqueue(Reply(200));
    expectWriteFailure(errorOf(startInFolder(get())), "Failed to write empty response");
    EXPECT_THAT(namesIn(folder), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(inner), "old");
}

TEST_F(DownloadFolderTest, ReadOnlyItLetsAFileGrow) {
    writeWholeFile(inner, "01234");
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"));
    EXPECT_EQ(responseOf(startInFolder(resuming())).status, 206);
    EXPECT_EQ(readWholeFile(inner), "0123456789");
}

// Whether there is something to go on with nobody can tell.
TEST_F(DownloadFolderTest, ClosedItIsAnErrorOfAResumedDownloadAndNothingIsSent) {
    writeWholeFile(inner, "01234");
    ASSERT_EQ(chmod(folder.c_str(), 0600), 0);
    const ErrorData told = errorOf(startInFolder(resuming()));
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_THAT(told.message, testing::HasSubstr(inner));
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(DownloadFolderTest, ClosedMeanwhileItIsAWriteFailureOfAResumedDownload) {
    writeWholeFile(inner, "01234");
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").pause().body("56789"));
    const Client::RequestId id = startInFolder(resuming());
    server.awaitRequests(1);
    ASSERT_EQ(chmod(folder.c_str(), 0600), 0);
    server.release();
    expectNotOpened(errorOf(id));
    ASSERT_EQ(chmod(folder.c_str(), 0700), 0);
    EXPECT_EQ(readWholeFile(inner), "01234");
}

// The file was closed by then: it is whole, and somebody's to find.
TEST_F(DownloadFolderTest, ReadOnlyMeanwhileItKeepsBothFiles) {
    writeWholeFile(inner, "old");
    server.enqueue(Reply(200).body("new ").stallBeforeEnd("bytes"));
    const Client::RequestId id = startInFolder(get());
    recorder.awaitProgress(id);
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    const LogCapture log("CurlRequest", 1);
    server.release();
    expectWriteFailure(errorOf(id), inner);
    EXPECT_TRUE(log.contains("notifyDataEnd: Rename failed - Permission denied"));
    ASSERT_THAT(namesIn(folder), ElementsAre("f.bin", isPart()));
    EXPECT_EQ(readWholeFile(inner), "old");
    EXPECT_EQ(readWholeFile(folder + '/' + namesIn(folder)[1]), "new bytes");
}

TEST_F(DownloadFolderTest, AReadOnlyFileIsReplaced) {
    writeWholeFile(inner, "old");
    ASSERT_EQ(chmod(inner.c_str(), 0444), 0);
    server.enqueue(Reply(200).body("bytes"));
    EXPECT_EQ(responseOf(startInFolder(get())).status, 200);
    EXPECT_EQ(readWholeFile(inner), "bytes");
}

TEST_F(DownloadFolderTest, AReadOnlyFileDoesNotGrow) {
    writeWholeFile(inner, "01234");
    ASSERT_EQ(chmod(inner.c_str(), 0444), 0);
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"));
    expectNotOpened(errorOf(startInFolder(resuming())));
    EXPECT_EQ(readWholeFile(inner), "01234");
}

// --- a folder in the target's place ---

TEST_F(DownloadFolderTest, InTheTargetsPlaceItIsAWriteFailureAtTheEnd) {
    std::filesystem::create_directory(target);
    server.enqueue(Reply(200).body("bytes"));
    const LogCapture log("CurlRequest", 1);
    expectWriteFailure(error(get()), target);
    EXPECT_TRUE(log.contains("notifyDataEnd: Rename failed - Is a directory"));
    ASSERT_THAT(directory.names(), ElementsAre("f.bin", isPart(), "folder"));
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[1])), "bytes");
    EXPECT_THAT(namesIn(target), IsEmpty());
}

TEST_F(DownloadFolderTest, InTheTargetsPlaceItIsAWriteFailureForAnEmptyFileToo) {
    std::filesystem::create_directory(target);
    server.enqueue(Reply(200));
    expectWriteFailure(error(get()), target);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin", MatchesRegex("f\\.bin\\.[0123456789abdcef]{8}"), "folder"));
    EXPECT_THAT(namesIn(target), IsEmpty());
}

TEST_F(DownloadFolderTest, InTheTargetsPlaceItCanNotBeResumed) {
    std::filesystem::create_directory(target);
    server.enqueue(Reply(200).body("bytes"));
    const ErrorData told = error(resuming());
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_THAT(told.message, testing::HasSubstr(target));
    EXPECT_THAT(server.requests(), IsEmpty());
    EXPECT_THAT(directory.names(), ElementsAre("f.bin", "folder"));
}

}  // namespace
}  // namespace kel::http::test
