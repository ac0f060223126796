// SPDX-License-Identifier: MIT
#include <curl/curl.h>

#include "client/DownloadTest.h"
#include "client/FullDisk.h"
#include "fixture/LogCapture.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;

class DownloadDiskTest : public DownloadTest {
 protected:
    // A part of `whole` that does not fit is refused when it is written, with libcurl's words; one that fits into the
    // stream's buffer when the file is closed.
    static void expectRefused(const ErrorData& told) {
        EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
        EXPECT_EQ(told.message, curl_easy_strerror(CURLE_WRITE_ERROR));
    }

    static void expectRefusedAtTheEnd(const ErrorData& told, const std::string& path) {
        EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
        EXPECT_EQ(told.message, path);
    }

    Reply rest(std::size_t from) const {
        return Reply(206)
            .header("Content-Range", "bytes " + std::to_string(from) + "-999999/1000000")
            .body(whole.substr(from));
    }

    const std::string whole = pattern(1000000);
};

TEST_F(DownloadDiskTest, FullInsideTheFileLeavesTheOldOneOnly) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body(whole));
    const LogCapture log("HttpClient", 1);
    {
        const FullDisk full(100000);
        expectRefused(error(get()));
    }
    EXPECT_TRUE(log.contains("writeFunction: Receiving data failed: 'Failed write to file'"));
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadDiskTest, FullInsideTheFileKeepsWhatFittedOnDemand) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body(whole));
    {
        const FullDisk full(100000);
        expectRefused(error(keeping()));
    }
    ASSERT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    EXPECT_TRUE(readWholeFile(directory.path(directory.names()[1])) == whole.substr(0, 100000));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadDiskTest, FullAtTheEndLeavesTheOldFileAndTheUnfinishedOne) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body("little"));
    ErrorData told{};
    {
        const FullDisk full(3);
        told = error(get());
    }
    ASSERT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    expectRefusedAtTheEnd(told, directory.path(directory.names()[1]));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadDiskTest, FullInsideAResumedFileLeavesABeginningThatIsGoneOnWith) {
    writeWholeFile(target, whole.substr(0, 1000));
    server.enqueue(rest(1000));
    {
        const FullDisk full(100000);
        expectRefused(error(resuming()));
    }
    EXPECT_TRUE(content() == whole.substr(0, 100000));
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));

    server.enqueue(rest(100000));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_TRUE(content() == whole);
}

TEST_F(DownloadDiskTest, FullAtTheEndOfAResumedFileLeavesABeginning) {
    writeWholeFile(target, whole.substr(0, 999900));
    server.enqueue(rest(999900));
    {
        const FullDisk full(999950);
        expectRefusedAtTheEnd(error(resuming()), target);
    }
    EXPECT_TRUE(content() == whole.substr(0, 999950));
}

TEST_F(DownloadDiskTest, WithRoomAgainTheNextDownloadArrives) {
    server.enqueue(Reply(200).body(whole));
    {
        const FullDisk full(100000);
        expectRefused(error(get()));
    }
    server.enqueue(Reply(200).body(whole));
    EXPECT_EQ(response(get()).status, 200);
    EXPECT_TRUE(content() == whole);
}

}  // namespace
}  // namespace kel::http::test
