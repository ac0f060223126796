// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>

#include "client/Arrivals.h"
#include "client/DownloadTest.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using std::chrono::steady_clock;

class DownloadProgressTest : public DownloadTest {
 protected:
    // Reports of a file that was not complete yet.
    std::vector<ProgressData> reportsOnTheWay(Client::RequestId id) const {
        std::vector<ProgressData> reports = recorder.progress(id);
        const auto is_complete = [](const ProgressData& data) { return data.received == data.total; };
        reports.erase(std::remove_if(reports.begin(), reports.end(), is_complete), reports.end());
        return reports;
    }

    // What the time since `begin` allows: one at once, another after each full second.
    static std::size_t allowedSince(steady_clock::time_point begin) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - begin);
        return 1 + static_cast<std::size_t>(seconds.count());
    }
};

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

// --- how often ---

TEST_F(DownloadProgressTest, ManyPiecesWithinASecondMakeOneReport) {
    constexpr std::size_t pieces = 200;
    constexpr std::size_t size = 2000;
    Arrivals arrivals;
    useDigest([&arrivals] { return arrivals.digest(); });
    server.enqueue(Reply(200).drip(std::vector<std::string>(pieces, std::string(size, 'x'))));
    const auto begin = steady_clock::now();
    const Client::RequestId id = startDownload(get());
    for (std::size_t piece = 1; piece < pieces; ++piece) {
        arrivals.await(piece * size);
        // libcurl tells of progress in every pass of the engine's loop.
        onEngineThread([] {});
        server.release();
    }
    responseOf(id);
    const std::vector<ProgressData> reports = reportsOnTheWay(id);
    ASSERT_GE(reports.size(), 1U);
    EXPECT_EQ(reports[0].received, size);
    EXPECT_LE(reports.size(), allowedSince(begin));
}

TEST_F(DownloadProgressTest, ASlowFileIsReportedOnceASecondAtMost) {
    NginxServer nginx;
    nginx.writeFile("f", pattern(100000));
    RequestConfig config;
    config.url = nginx.url("/limit/f?rate=50k");
    const auto begin = steady_clock::now();
    const Client::RequestId id = startDownload(config);
    responseOf(id);
    const std::vector<ProgressData> reports = reportsOnTheWay(id);
    EXPECT_GE(reports.size(), 1U);
    EXPECT_LE(reports.size(), allowedSince(begin));
    for (std::size_t i = 0; i + 1 < reports.size(); ++i) EXPECT_LT(reports[i].received, reports[i + 1].received);
    EXPECT_EQ(recorder.progress(id).back().received, 100000U);
}

TEST_F(DownloadProgressTest, AFileThatStandsStillIsNotReportedAgain) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    const Client::RequestId id = startDownload(get());
    recorder.awaitProgress(id);
    for (int pass = 0; pass < 100; ++pass) drain();
    EXPECT_EQ(recorder.progress(id).size(), 1U);
    server.release();
    responseOf(id);
}

}  // namespace
}  // namespace kel::http::test
