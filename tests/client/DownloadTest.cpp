// SPDX-License-Identifier: MIT
#include <curl/curl.h>

#include <filesystem>

#include "client/DownloadTest.h"
#include "fixture/LogCapture.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// --- from a real server ---

TEST_F(DownloadTest, ARealServerGoesOnWhereTheFileEnds) {
    NginxServer nginx;
    nginx.writeFile("f", "0123456789");
    RequestConfig config;
    config.url = nginx.url("/f");
    config.resume = true;
    writeWholeFile(target, "01234");
    EXPECT_EQ(response(config).status, 206);
    EXPECT_EQ(content(), "0123456789");
    EXPECT_EQ(response(config).status, 416);
    EXPECT_EQ(content(), "0123456789");
}

// --- the file while it is written ---

TEST_F(DownloadTest, TheTargetIsTheOldFileOrTheWholeNewOne) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body("new ").stallBeforeEnd("bytes"));
    const Client::RequestId id = startDownload(get(), target);
    recorder.awaitProgress(id);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    EXPECT_EQ(content(), "old");
    server.release();
    EXPECT_EQ(recorder.await(id).response->body, "");
    EXPECT_EQ(content(), "new bytes");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, ARelativePathBelongsToTheProcessesFolder) {
    server.enqueue(Reply(200).body("bytes"));
    const std::string relative = std::filesystem::relative(target).string();
    EXPECT_EQ(recorder.await(startDownload(get(), relative)).response->status, 200);
    EXPECT_EQ(content(), "bytes");
}

TEST_F(DownloadTest, TheDownloadPathOfTheConfigurationDoesNotMatter) {
    server.enqueue(Reply(200).body("bytes"));
    RequestConfig config = get();
    config.download_path = directory.path("other");
    EXPECT_EQ(response(config).status, 200);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, AFollowedRedirectsBodyIsNotPartOfTheFile) {
    server.enqueue(Reply::redirect("/next").body("see there"));
    server.enqueue(Reply(200).body("arrived"));
    EXPECT_EQ(response(get()).status, 200);
    EXPECT_EQ(content(), "arrived");
}

// --- answers that are no success ---

TEST_F(DownloadTest, TheBodyOfAnErrorStatusReplacesTheTarget) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(404).body("not found"));
    const ResponseData data = response(get());
    EXPECT_EQ(data.status, 404);
    EXPECT_EQ(data.body, "");
    EXPECT_EQ(content(), "not found");
}

TEST_F(DownloadTest, AnEmptyErrorReplacesTheTargetByAnEmptyFile) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(503));
    EXPECT_EQ(response(get()).status, 503);
    EXPECT_EQ(content(), "");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

// --- failures ---

TEST_F(DownloadTest, ABodyThatIsCutShortLeavesTheOldFileOnly) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body(std::string(1000, 'x')).closeInsideBody(100));
    EXPECT_EQ(error(get()).failure, ClientFailure::Other);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadTest, ABodyThatIsCutShortIsKeptOnDemand) {
    server.enqueue(Reply(200).body(std::string(1000, 'x')).closeInsideBody(100));
    RequestConfig config = get();
    config.keep_partial_download = true;
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    ASSERT_THAT(directory.names(), ElementsAre(isPart()));
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[0])), std::string(1000, 'x'));
}

TEST_F(DownloadTest, AConnectionClosedInsideTheHeadersLeavesTheOldFile) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).closeInsideHeaders());
    EXPECT_EQ(error(get()).message, "Connection closed inside the response headers");
    EXPECT_EQ(content(), "old");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, ATimeOutLeavesNothing) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(100);
    EXPECT_EQ(error(config).failure, ClientFailure::Timeout);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadTest, AMissingFolderIsAWriteFailure) {
    server.enqueue(Reply(200).body("bytes"));
    const LogCapture log("HttpClient", 1);
    const ErrorData told = *recorder.await(startDownload(get(), directory.path("missing/f.bin"))).error;
    EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
    EXPECT_EQ(told.message, curl_easy_strerror(CURLE_WRITE_ERROR));
    EXPECT_TRUE(log.contains("writeFunction: Receiving data failed: 'Failed to open file'"));
}

TEST_F(DownloadTest, AMissingFolderIsAWriteFailureForAnEmptyFileToo) {
    server.enqueue(Reply(200));
    const ErrorData told = *recorder.await(startDownload(get(), directory.path("missing/f.bin"))).error;
    EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
    EXPECT_EQ(told.message, "Failed to write empty response");
}

TEST_F(DownloadTest, ATargetThatIsAFolderIsAWriteFailure) {
    std::filesystem::create_directory(target);
    server.enqueue(Reply(200).body("bytes"));
    const ErrorData told = error(get());
    EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
    EXPECT_EQ(told.message, target);
}

TEST_F(DownloadTest, DataBeyondTheLimitIsAWriteFailureAndLeavesTheOldFile) {
    writeWholeFile(target, "old");
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).chunked().body("1234567890").body("x"));
    const LogCapture log("HttpClient", 1);
    const ErrorData told = error(config);
    EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
    EXPECT_EQ(told.message, curl_easy_strerror(CURLE_WRITE_ERROR));
    EXPECT_TRUE(log.contains("writeFunction: Receiving data failed: 'Received data exceeds limit'"));
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadTest, AnAnnouncedSizeBeyondTheLimitIsRefusedBeforeAByteComes) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).body("12345678901"));
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    EXPECT_THAT(directory.names(), IsEmpty());
}

// --- going on where a file ends ---

TEST_F(DownloadTest, ResumingAsksForWhatIsMissingAndAppendsIt) {
    writeWholeFile(target, "01234");
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_EQ(server.requests().at(0).header("Range"), "bytes=5-");
    EXPECT_EQ(content(), "0123456789");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, ResumingGrowsTheTargetInPlace) {
    writeWholeFile(target, "01234");
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56").stallBeforeEnd("789"));
    const Client::RequestId id = startDownload(resuming(), target);
    recorder.awaitProgress(id);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    server.release();
    recorder.await(id);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadTest, ResumingWithoutAFileFetchesAll) {
    server.enqueue(Reply(200).body("all"));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_FALSE(server.requests().at(0).header("Range").has_value());
    EXPECT_EQ(content(), "all");
}

TEST_F(DownloadTest, ResumingAnEmptyFileFetchesAll) {
    writeWholeFile(target, "");
    server.enqueue(Reply(200).body("all"));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_FALSE(server.requests().at(0).header("Range").has_value());
    EXPECT_EQ(content(), "all");
}

TEST_F(DownloadTest, ACutDownloadGoesOnUntilItIsWhole) {
    const std::string whole = "0123456789";
    server.onRequest([&whole](const ReceivedRequest& request) {
        const std::string range = request.header("Range").value_or("bytes=0-");
        const std::size_t from = std::stoul(range.substr(6));
        Reply reply(from == 0 ? 200 : 206);
        if (from != 0) reply.header("Content-Range", "bytes " + std::to_string(from) + "-9/10");
        reply.body(whole.substr(from, 3));
        if (whole.size() - from > 3) reply.closeInsideBody(whole.size() - from - 3);
        return reply;
    });
    for (const std::string grown : {"012", "012345", "012345678"}) {
        EXPECT_EQ(error(resuming()).failure, ClientFailure::Other);
        EXPECT_EQ(content(), grown);
    }
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_EQ(content(), whole);
}

TEST_F(DownloadTest, AServerWithoutRangesIsARangeErrorAndTheBytesStay) {
    writeWholeFile(target, "01234");
    server.enqueue(Reply(200).body("0123456789"));
    EXPECT_EQ(error(resuming()).failure, ClientFailure::RangeError);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadTest, AnErrorPageIsNotAppendedToWhatIsThere) {
    writeWholeFile(target, "01234");
    server.enqueue(Reply(404).body("not found"));
    EXPECT_EQ(error(resuming()).failure, ClientFailure::RangeError);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadTest, AnErrorPageIsWrittenWhereNothingWas) {
    server.enqueue(Reply(404).body("not found"));
    EXPECT_EQ(response(resuming()).status, 404);
    EXPECT_EQ(content(), "not found");
}

TEST_F(DownloadTest, AWholeAnswerAsLongAsTheFileIsASuccessThatAddsNothing) {
    writeWholeFile(target, "01234");
    server.enqueue(Reply(200).body("abcde"));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadTest, ACompleteFileIsAResponse416AndStays) {
    writeWholeFile(target, "0123456789");
    server.enqueue(Reply(416).header("Content-Range", "bytes */10").body("no more"));
    EXPECT_EQ(response(resuming()).status, 416);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadTest, ResumingAFolderIsAnError) {
    std::filesystem::create_directory(target);
    EXPECT_EQ(error(resuming()).failure, ClientFailure::Other);
    EXPECT_EQ(server.requests().size(), 0U);
}

// --- progress ---

TEST_F(DownloadTest, ProgressEndsWithACompleteReportNamingTheServer) {
    server.enqueue(Reply(200).body(std::string(1000, 'x')));
    const Client::RequestId id = startDownload(get(), target);
    recorder.await(id);
    const auto reports = recorder.progress(id);
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back().request_id, id);
    EXPECT_EQ(reports.back().remote_address, server.authority());
    EXPECT_EQ(reports.back().total, 1000U);
    EXPECT_EQ(reports.back().received, 1000U);
}

TEST_F(DownloadTest, ProgressOfAResumedDownloadCountsWhatWasThereExceptAtTheEnd) {
    writeWholeFile(target, std::string(1000, 'x'));
    server.enqueue(Reply(206)
                       .header("Content-Range", "bytes 1000-1999/2000")
                       .body(std::string(600, 'y'))
                       .stallBeforeEnd(std::string(400, 'z')));
    const Client::RequestId id = startDownload(resuming(), target);
    const ProgressData first = recorder.awaitProgress(id);
    EXPECT_EQ(first.total, 2000U);
    EXPECT_GT(first.received, 1000U);
    EXPECT_LE(first.received, 1600U);
    server.release();
    recorder.await(id);
    EXPECT_EQ(recorder.progress(id).back().total, 1000U);
    EXPECT_EQ(recorder.progress(id).back().received, 1000U);
}

TEST_F(DownloadTest, ProgressOfAnUnknownSizeHasNoTotal) {
    server.enqueue(Reply(200).chunked().body("half").stallBeforeEnd());
    const Client::RequestId id = startDownload(get(), target);
    const ProgressData report = recorder.awaitProgress(id);
    EXPECT_EQ(report.total, 0U);
    EXPECT_EQ(report.received, 4U);
    server.release();
    recorder.await(id);
}

// --- logs ---

TEST_F(DownloadTest, TheRenameIsLogged) {
    server.enqueue(Reply(200).body("bytes"));
    const LogCapture log("CurlRequest", 4);
    response(get());
    EXPECT_THAT(log.texts("CurlRequest"),
                ElementsAre(MatchesRegex("notifyDataEnd: Renaming tmp file .*/f\\.bin\\.downloading-[0-9a-f]{8} to "
                                         ".*/f\\.bin"),
                            "notifyDataEnd: Rename complete"));
}

TEST_F(DownloadTest, TheBytesOfADownloadAreInNoLog) {
    server.enqueue(Reply(404).header("Content-Type", "application/json").body("bytes of a file"));
    const LogCapture log(9);
    response(get());
    log.await("Rename complete");
    EXPECT_FALSE(log.contains("bytes of a file"));
}

TEST_F(DownloadTest, TheBytesOfAPlainRequestAreLoggedAtLevelNine) {
    server.enqueue(Reply(200).header("Content-Type", "application/json").body("bytes of a body"));
    const LogCapture log(9);
    fetch(get());
    EXPECT_THAT(log.texts("TestClient"), testing::Contains(" Body: bytes of a body"));
    log.await("[data IN");
}

}  // namespace
}  // namespace kel::http::test
