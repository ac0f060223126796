// SPDX-License-Identifier: MIT
#include <curl/curl.h>

#include "client/DownloadTest.h"
#include "fixture/LogCapture.h"
#include "support/OpenDescriptors.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DownloadFailureTest : public DownloadTest {};

TEST_F(DownloadFailureTest, ABodyThatIsCutShortLeavesTheOldFileOnly) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body(std::string(1000, 'x')).closeInsideBody(100));
    EXPECT_EQ(error(get()).failure, ClientFailure::Other);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadFailureTest, ABodyThatIsCutShortIsKeptOnDemand) {
    server.enqueue(Reply(200).body(std::string(1000, 'x')).closeInsideBody(100));
    RequestConfig config = get();
    config.keep_partial_download = true;
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    ASSERT_THAT(directory.names(), ElementsAre(isPart()));
    EXPECT_EQ(readWholeFile(directory.path(directory.names()[0])), std::string(1000, 'x'));
}

TEST_F(DownloadFailureTest, AConnectionClosedInsideTheHeadersLeavesTheOldFile) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).closeInsideHeaders());
    EXPECT_EQ(error(get()).message, "Connection closed inside the response headers");
    EXPECT_EQ(content(), "old");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadFailureTest, ATimeOutLeavesNothing) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(100);
    EXPECT_EQ(error(config).failure, ClientFailure::Timeout);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadFailureTest, DataBeyondTheLimitIsAWriteFailureAndLeavesTheOldFile) {
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

TEST_F(DownloadFailureTest, AnAnnouncedSizeBeyondTheLimitIsRefusedBeforeAByteComes) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).body("12345678901"));
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadFailureTest, ALimitOfNothingRefusesTheFirstByteAndLeavesTheOldFile) {
    writeWholeFile(target, "old");
    RequestConfig config = get();
    config.size_limit = 0U;
    server.enqueue(Reply(200).body("x"));
    EXPECT_EQ(error(config).failure, ClientFailure::WriteFailed);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

TEST_F(DownloadFailureTest, ALimitOfNothingAllowsAnEmptyFile) {
    writeWholeFile(target, "old");
    RequestConfig config = get();
    config.size_limit = 0U;
    server.enqueue(Reply(200));
    EXPECT_EQ(response(config).status, 200);
    EXPECT_EQ(content(), "");
}

TEST_F(DownloadFailureTest, AFileOfExactlyTheLimitArrives) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).body("1234567890"));
    EXPECT_EQ(response(config).status, 200);
    EXPECT_EQ(content(), "1234567890");
}

// Nobody gets to see these bodies, but they are looked at before it is known what comes behind them.
TEST_F(DownloadFailureTest, AnAnnouncedSizeBeyondTheLimitOnTheWayIsRefusedAsWell) {
    RequestConfig config = get();
    config.size_limit = 10U;
    config.user = "user";
    server.enqueue(Reply::redirect("/next").body("12345678901"));
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"there\"").body("12345678901"));
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    EXPECT_THAT(server.requests(), testing::SizeIs(2));
    EXPECT_THAT(directory.names(), IsEmpty());
}

// However a download ends, its file is closed then.
TEST_F(DownloadFailureTest, NoDownloadLeavesItsFileOpen) {
    const OpenDescriptors before;
    server.enqueue(Reply(200).body("bytes"));
    response(get());
    server.enqueue(Reply(200).body("bytes").closeInsideBody());
    error(get());
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("bytes").closeInsideBody());
    error(resuming());
    RequestConfig limited = keeping();
    limited.size_limit = 3U;
    server.enqueue(Reply(200).chunked().body("bytes"));
    error(limited);
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId cancelled = startDownload(get());
    recorder.awaitProgress(cancelled);
    cancel(cancelled);
    drain();
    EXPECT_THAT(before.opened(), testing::Not(testing::Contains(testing::HasSubstr(directory.path()))));
}

}  // namespace
}  // namespace kel::http::test
