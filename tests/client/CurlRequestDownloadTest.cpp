// SPDX-License-Identifier: MIT
#include <boost/system/error_code.hpp>
#include <filesystem>
#include <stdexcept>

#include "CurlRequestTest.h"
#include "client/FullDisk.h"
#include "fixture/LogCapture.h"
#include "ko/filesystem.h"
#include "ko/random.h"
#include "support/Files.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

RequestConfig resuming() {
    RequestConfig config;
    config.resume = true;
    return config;
}

RequestConfig keeping() {
    RequestConfig config;
    config.keep_partial_download = true;
    return config;
}

class CurlRequestDownloadTest : public CurlRequestTest {
 protected:
    static void expectThrown(CurlRequest& request, std::string_view data, const std::string& text) {
        try {
            request.notifyDataReceived(data);
            ADD_FAILURE() << "accepted";
        } catch (const std::runtime_error& refusal) {
            EXPECT_EQ(refusal.what(), text);
        }
    }

    void expectWriteFailure(const std::string& text) {
        const ErrorData told = error();
        EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
        EXPECT_EQ(told.message, text);
    }

    // The one file in the folder, as a whole path.
    std::string onlyFile() {
        const auto names = directory.names();
        EXPECT_EQ(names.size(), 1U);
        return names.empty() ? std::string() : directory.path(names.front());
    }

    // Where the next download writes to.
    std::string foreseeTemporaryFile() {
        constexpr unsigned int seed = 42;
        ko::randint_e_().seed(seed);
        boost::system::error_code ignored;
        const auto path = ko::filesystem::unique_path(target + ".downloading-%%%%%%%%", ignored);
        ko::randint_e_().seed(seed);
        return path.string();
    }

    const std::string target = directory.path("f.bin");
};

// --- the file ---

TEST_F(CurlRequestDownloadTest, DataIsWrittenBesideTheTargetAndMovedThereAtTheEnd) {
    writeWholeFile(target, "old");
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("new ");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin", MatchesRegex("f\\.bin\\.downloading-[0-9a-f]{8}")));
    request->notifyDataReceived({"by\0tes", 6});
    EXPECT_EQ(readWholeFile(target), "old");
    complete(*request);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), std::string("new by\0tes", 10));
    const ResponseData data = response();
    EXPECT_EQ(data.status, 200);
    EXPECT_EQ(data.body, "");
}

TEST_F(CurlRequestDownloadTest, NoFileIsMadeBeforeDataComes) {
    const auto request = download(target);
    receiveHead(*request);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(CurlRequestDownloadTest, NoFileIsMadeWhilePaused) {
    const auto request = download(target);
    request->pauseRequest();
    EXPECT_EQ(request->notifyDataReceived("data"), 1);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(CurlRequestDownloadTest, TwoDownloadsToOneTargetUseTheirOwnFiles) {
    const auto one = download(target);
    const auto other = download(target);
    one->notifyDataReceived("one");
    other->notifyDataReceived("other");
    EXPECT_EQ(directory.names().size(), 2U);
}

TEST_F(CurlRequestDownloadTest, AFileOfTheTemporaryNameIsReplaced) {
    writeWholeFile(foreseeTemporaryFile(), "much longer than what comes");
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("data");
    complete(*request);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), "data");
}

TEST_F(CurlRequestDownloadTest, ASymbolicLinkOfTheTemporaryNameIsFollowed) {
    const std::string elsewhere = directory.path("elsewhere");
    writeWholeFile(elsewhere, "much longer than what comes");
    std::filesystem::create_symlink(elsewhere, foreseeTemporaryFile());
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("data");
    complete(*request);
    EXPECT_THAT(directory.names(), ElementsAre("elsewhere", "f.bin"));
    EXPECT_EQ(std::filesystem::read_symlink(target), elsewhere);
    EXPECT_EQ(readWholeFile(elsewhere), "data");
}

TEST_F(CurlRequestDownloadTest, RenamingIsLogged) {
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("data");
    const std::string temporary = onlyFile();
    const LogCapture log("CurlRequest", 4);
    complete(*request);
    EXPECT_THAT(log.texts("CurlRequest"), ElementsAre("notifyDataEnd: Renaming tmp file " + temporary + " to " + target,
                                                      "notifyDataEnd: Rename complete"));
    for (const CapturedLine& line : log.lines()) EXPECT_EQ(line.level, 4);
}

TEST_F(CurlRequestDownloadTest, WithoutDataAnEmptyFileIsMoved) {
    writeWholeFile(target, "old");
    const auto request = download(target);
    receiveHead(*request);
    const LogCapture log("CurlRequest", 4);
    complete(*request);
    EXPECT_THAT(log.texts("CurlRequest"),
                ElementsAre(MatchesRegex("notifyDataEnd: Renaming tmp file .*/f\\.bin\\.[0-9a-f]{8} to .*/f\\.bin"),
                            "notifyDataEnd: Rename complete"));
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), "");
    EXPECT_EQ(response().body, "");
}

TEST_F(CurlRequestDownloadTest, TheBodyOfAnErrorStatusReplacesTheTarget) {
    writeWholeFile(target, "old");
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("not found");
    fail(*request, Failure::HttpError, "HTTP code=404", 404);
    EXPECT_EQ(response().status, 404);
    EXPECT_EQ(readWholeFile(target), "not found");
}

TEST_F(CurlRequestDownloadTest, AnEndInsideTheHeadersLeavesTheTarget) {
    writeWholeFile(target, "old");
    const auto request = download(target);
    request->notifyHeader("HTTP/1.1 200 OK\r\n");
    complete(*request);
    EXPECT_EQ(error().failure, ClientFailure::Other);
    EXPECT_EQ(readWholeFile(target), "old");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

// --- '%' in the path ---

TEST_F(CurlRequestDownloadTest, APercentSignInTheNameIsReplacedInTheTemporaryNameOnly) {
    const std::string percent = directory.path("100%.bin");
    const auto request = download(percent);
    receiveHead(*request);
    request->notifyDataReceived("data");
    EXPECT_THAT(directory.names(), ElementsAre(MatchesRegex("100[0-9a-f]\\.bin\\.downloading-[0-9a-f]{8}")));
    complete(*request);
    EXPECT_THAT(directory.names(), ElementsAre("100%.bin"));
    EXPECT_EQ(readWholeFile(percent), "data");
}

TEST_F(CurlRequestDownloadTest, APercentSignInTheFolderLeadsAstray) {
    const std::string folder = directory.path("100%");
    std::filesystem::create_directory(folder);
    const auto request = download(folder + "/f.bin");
    expectThrown(*request, "data", "Failed to open file");
}

// --- what can not be written ---

// What comes before the zero byte is the name of another file.
TEST_F(CurlRequestDownloadTest, AZeroByteInTheNameIsRefused) {
    writeWholeFile(target, "old");
    const std::string name = target + std::string("\0x", 2);
    auto request = download(name);
    receiveHead(*request);
    expectThrown(*request, "data", "Failed to open file");
    request.reset();
    request = download(name, resuming());
    expectThrown(*request, "data", "Failed to open file");
    request.reset();
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), "old");
}

TEST_F(CurlRequestDownloadTest, AZeroByteInTheNameRefusesAnEmptyFile) {
    writeWholeFile(target, "old");
    const auto request = download(target + std::string("\0x", 2));
    receiveHead(*request);
    complete(*request);
    expectWriteFailure("Failed to write empty response");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), "old");
}

TEST_F(CurlRequestDownloadTest, AMissingFolderRefusesTheFirstData) {
    const auto request = download(directory.path("missing/f.bin"));
    expectThrown(*request, "data", "Failed to open file");
}

// No empty file takes the place of one that was to hold data.
TEST_F(CurlRequestDownloadTest, AnEndAfterRefusedDataMovesNothing) {
    const auto request = download(directory.path("missing/f.bin"));
    receiveHead(*request);
    expectThrown(*request, "data", "Failed to open file");
    std::filesystem::create_directory(directory.path("missing"));
    complete(*request);
    expectWriteFailure(directory.path("missing/f.bin"));
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("missing")));
}

TEST_F(CurlRequestDownloadTest, AMissingFolderRefusesAnEmptyFile) {
    const auto request = download(directory.path("missing/f.bin"));
    receiveHead(*request);
    complete(*request);
    expectWriteFailure("Failed to write empty response");
}

TEST_F(CurlRequestDownloadTest, ATargetThatIsAFolderCanNotBeReplaced) {
    std::filesystem::create_directory(target);
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("data");
    const LogCapture log("CurlRequest", 1);
    complete(*request);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, 1);
    EXPECT_EQ(log.lines()[0].text, "notifyDataEnd: Rename failed - Is a directory");
    expectWriteFailure(target);
}

TEST_F(CurlRequestDownloadTest, AFileThatCanNotBeRenamedIsWholeAndStays) {
    std::filesystem::create_directory(target);
    auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("data");
    complete(*request);
    outcome();
    request.reset();
    ASSERT_EQ(directory.names().size(), 2U);
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[1])), "data");
}

TEST_F(CurlRequestDownloadTest, AFolderThatVanishesMeanwhileRefusesTheRename) {
    const std::string folder = directory.path("folder");
    std::filesystem::create_directory(folder);
    const auto request = download(folder + "/f.bin");
    receiveHead(*request);
    request->notifyDataReceived("data");
    std::filesystem::remove_all(folder);
    complete(*request);
    expectWriteFailure(folder + "/f.bin");
}

TEST_F(CurlRequestDownloadTest, AFullDiskRefusesTheData) {
    writeWholeFile(target, "old");
    auto request = download(target);
    receiveHead(*request);
    const std::string much(1 << 20, 'x');
    {
        const FullDisk full(1000);
        expectThrown(*request, much, "Failed write to file");
    }
    fail(*request, Failure::WriteFailed, "text", 200);
    EXPECT_EQ(error().failure, ClientFailure::WriteFailed);
    request.reset();
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), "old");
}

TEST_F(CurlRequestDownloadTest, AFullDiskMayShowAtTheEndOnly) {
    writeWholeFile(target, "old");
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("little");
    const std::string temporary = directory.path(directory.names()[1]);
    {
        const FullDisk full(3);
        complete(*request);
    }
    expectWriteFailure(temporary);
    EXPECT_EQ(readWholeFile(target), "old");
}

TEST_F(CurlRequestDownloadTest, DataBeyondTheLimitIsRefused) {
    RequestConfig config;
    config.size_limit = 10U;
    auto request = download(target, config);
    request->notifyDataReceived("123456");
    request->notifyDataReceived("7890");
    expectThrown(*request, "x", "Received data exceeds limit");
    request.reset();
    EXPECT_THAT(directory.names(), IsEmpty());
}

// --- partial files ---

TEST_F(CurlRequestDownloadTest, AnUnfinishedFileIsRemovedWithItsRequest) {
    writeWholeFile(target, "old");
    auto request = download(target);
    request->notifyDataReceived("half");
    request.reset();
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(readWholeFile(target), "old");
}

TEST_F(CurlRequestDownloadTest, AnUnfinishedFileIsKeptOnDemandWithAllItsBytes) {
    auto request = download(target, keeping());
    request->notifyDataReceived("half");
    request.reset();
    EXPECT_THAT(directory.names(), ElementsAre(MatchesRegex("f\\.bin\\.downloading-[0-9a-f]{8}")));
    EXPECT_EQ(readWholeFile(onlyFile()), "half");
}

// The caller may look at the folder, or resume, as soon as it hears of the failure. The request lives on meanwhile.
TEST_F(CurlRequestDownloadTest, TheFileOfAFailedTransferIsRemovedBeforeTheErrorIsTold) {
    const auto request = download(target);
    receiveHead(*request);
    request->notifyDataReceived("half");
    fail(*request, Failure::Other, "cut", 200);
    EXPECT_EQ(error().message, "cut");
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(CurlRequestDownloadTest, TheFileOfAFailedTransferIsKeptOnDemandWithAllItsBytes) {
    const auto request = download(target, keeping());
    receiveHead(*request);
    request->notifyDataReceived("half");
    fail(*request, Failure::Other, "cut", 200);
    outcome();
    EXPECT_EQ(readWholeFile(onlyFile()), "half");
}

// --- going on where a file ends ---

TEST_F(CurlRequestDownloadTest, ResumedDataIsAppendedToTheTarget) {
    writeWholeFile(target, "old ");
    const auto request = download(target, resuming());
    receiveHead(*request);
    request->notifyDataReceived("and new");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    const LogCapture log("CurlRequest", 9);
    complete(*request, 206);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(response().status, 206);
    EXPECT_EQ(readWholeFile(target), "old and new");
}

TEST_F(CurlRequestDownloadTest, ResumingWithoutATargetBeginsIt) {
    const auto request = download(target, resuming());
    receiveHead(*request);
    request->notifyDataReceived("all new");
    complete(*request);
    EXPECT_EQ(response().body, "");
    EXPECT_EQ(readWholeFile(target), "all new");
}

TEST_F(CurlRequestDownloadTest, ResumingWithoutDataTouchesNothing) {
    const auto missing = download(target, resuming());
    receiveHead(*missing);
    complete(*missing, 416);
    EXPECT_EQ(response().status, 416);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(CurlRequestDownloadTest, ResumingKeepsWhatWasReceivedBeforeAFailure) {
    writeWholeFile(target, "old ");
    const auto request = download(target, resuming());
    request->notifyDataReceived("half");
    fail(*request, Failure::Other, "cut", 206);
    outcome();
    EXPECT_EQ(readWholeFile(target), "old half");
}

// When its request is given up the owner may resume the file at once, from the size that it has.
TEST_F(CurlRequestDownloadTest, ResumedDataIsInTheTargetAtOnce) {
    writeWholeFile(target, "old ");
    auto request = download(target, resuming());
    request->notifyDataReceived("and ");
    EXPECT_EQ(readWholeFile(target), "old and ");
    request->notifyDataReceived("new");
    request.reset();
    EXPECT_EQ(readWholeFile(target), "old and new");
}

TEST_F(CurlRequestDownloadTest, ResumingAMissingFolderIsRefused) {
    const auto request = download(directory.path("missing/f.bin"), resuming());
    expectThrown(*request, "data", "Failed to open file");
}

TEST_F(CurlRequestDownloadTest, ResumingAFolderIsRefused) {
    std::filesystem::create_directory(target);
    const auto request = download(target, resuming());
    EXPECT_THROW(request->notifyDataReceived("data"), std::runtime_error);
}

TEST_F(CurlRequestDownloadTest, AFullDiskMayShowAtTheEndOfAResumedDownloadOnly) {
    writeWholeFile(target, "old ");
    const auto request = download(target, resuming());
    receiveHead(*request);
    {
        const FullDisk full(4);
        request->notifyDataReceived("little");
    }
    complete(*request, 206);
    expectWriteFailure(target);
    EXPECT_EQ(readWholeFile(target), "old ");
}

TEST_F(CurlRequestDownloadTest, AResumedDownloadStopsAtTheFirstPieceAfterTheDiskWasFull) {
    writeWholeFile(target, "old ");
    const auto request = download(target, resuming());
    {
        const FullDisk full(6);
        request->notifyDataReceived("little");
    }
    expectThrown(*request, "more", "Failed write to file");
    EXPECT_EQ(readWholeFile(target), "old li");
}

TEST_F(CurlRequestDownloadTest, WhatDidNotFitIsNotAppendedAgainWhenThereIsRoom) {
    writeWholeFile(target, "old ");
    auto request = download(target, resuming());
    receiveHead(*request);
    request->notifyDataReceived("first ");
    {
        const FullDisk full(7);
        expectThrown(*request, std::string(5000, 'x'), "Failed write to file");
    }
    fail(*request, Failure::WriteFailed, "text", 206);
    outcome();
    request.reset();
    EXPECT_EQ(readWholeFile(target), "old first ");
}

TEST_F(CurlRequestDownloadTest, TheLimitCountsNewBytesOnly) {
    writeWholeFile(target, std::string(100, 'x'));
    RequestConfig config = resuming();
    config.size_limit = 10U;
    const auto request = download(target, config);
    request->notifyDataReceived("1234567890");
    expectThrown(*request, "x", "Received data exceeds limit");
}

TEST_F(CurlRequestDownloadTest, ProgressOfAResumedDownloadCountsWhatWasThereExceptAtTheEnd) {
    writeWholeFile(target, std::string(1000, 'x'));
    const auto request = download(target, resuming());
    request->notifyDataReceived("data");
    request->reportDownloadProgress(2000, 500);
    request->reportDownloadProgress(2000, 2000);
    const auto reports = progress();
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].total, 3000U);
    EXPECT_EQ(reports[0].received, 1500U);
    EXPECT_EQ(reports[1].total, 2000U);
    EXPECT_EQ(reports[1].received, 2000U);
}

TEST_F(CurlRequestDownloadTest, CountsBeyondThirtyTwoBitsWrapAround) {
    writeWholeFile(target, std::string(1000, 'x'));
    const auto request = download(target, resuming());
    request->notifyDataReceived("data");
    request->reportDownloadProgress(4294967295U, 500);
    const auto reports = progress();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].total, 999U);
}

TEST_F(CurlRequestDownloadTest, WithoutResumingAnExistingTargetAddsNothingToProgress) {
    writeWholeFile(target, std::string(1000, 'x'));
    const auto request = download(target);
    request->notifyDataReceived("data");
    request->reportDownloadProgress(2000, 500);
    const auto reports = progress();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].received, 500U);
}

}  // namespace
}  // namespace kel::http::test
