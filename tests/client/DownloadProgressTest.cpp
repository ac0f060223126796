// SPDX-License-Identifier: MIT
#include "client/DownloadTest.h"

namespace kel::http::test {
namespace {

class DownloadProgressTest : public DownloadTest {};

TEST_F(DownloadProgressTest, ProgressEndsWithACompleteReportNamingTheServer) {
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

TEST_F(DownloadProgressTest, ProgressOfAResumedDownloadCountsWhatWasThereExceptAtTheEnd) {
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

TEST_F(DownloadProgressTest, ProgressOfAnUnknownSizeHasNoTotal) {
    server.enqueue(Reply(200).chunked().body("half").stallBeforeEnd());
    const Client::RequestId id = startDownload(get(), target);
    const ProgressData report = recorder.awaitProgress(id);
    EXPECT_EQ(report.total, 0U);
    EXPECT_EQ(report.received, 4U);
    server.release();
    recorder.await(id);
}

}  // namespace
}  // namespace kel::http::test
