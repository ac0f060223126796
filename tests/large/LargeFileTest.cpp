// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "support/Deadline.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

constexpr std::uintmax_t Gibibyte = 1U << 30U;
constexpr std::uintmax_t Beyond31Bits = 22 * Gibibyte / 10;
constexpr std::uintmax_t Beyond32Bits = 43 * Gibibyte / 10;
constexpr std::uint32_t ThreeGibibytes = 3U << 30U;

// Places where numbers of 31 and of 32 bits end, and the end of the file.
std::vector<std::uintmax_t> marksOf(std::uintmax_t size) {
    std::vector<std::uintmax_t> places;
    for (const std::uintmax_t place : {std::uintmax_t{0}, 2 * Gibibyte - 2, 4 * Gibibyte - 2, size - 4}) {
        if (place <= size - 4) places.push_back(place);
    }
    return places;
}

// Zero bytes that take no room on the disk, save for four bytes at each mark.
void makeSparseFile(const std::string& path, std::uintmax_t size) {
    std::ofstream file(path, std::ios::binary);
    for (const std::uintmax_t place : marksOf(size)) {
        file.seekp(static_cast<std::streamoff>(place));
        file.write("mark", 4);
    }
    file.close();
    if (!file || fs::file_size(path) != size) throw std::runtime_error("can not make " + path);
}

void expectSame(const std::string& path, std::uintmax_t size) {
    ASSERT_EQ(fs::file_size(path), size);
    std::ifstream file(path, std::ios::binary);
    for (const std::uintmax_t place : marksOf(size)) {
        std::string mark(4, '\0');
        file.seekg(static_cast<std::streamoff>(place));
        file.read(mark.data(), 4);
        EXPECT_EQ(mark, "mark") << "at " << place;
    }
}

// All bytes of the folder's files.
std::uintmax_t bytesIn(const std::string& folder) {
    std::uintmax_t bytes = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        std::error_code gone;
        const std::uintmax_t size = entry.is_regular_file(gone) ? entry.file_size(gone) : 0;
        if (!gone) bytes += size;
    }
    return bytes;
}

class LargeFileTest : public ClientTest {
 protected:
    LargeFileTest() : nginx_(serving()) {
        if (fs::space(directory_.path()).available < 5 * Gibibyte) throw std::runtime_error("needs 5 GiB of room");
    }

    NginxServer::Options serving() const {
        fs::create_directory(stored_);
        NginxServer::Options options;
        options.directives = "location = /source { alias " + source_ + "; }\n" +  //
                             "location /store/ { alias " + stored_ + "/; client_body_temp_path " + stored_ +
                             "/incoming; dav_methods PUT; }";
        return options;
    }

    RequestConfig to(const std::string& path) const {
        RequestConfig config;
        config.url = nginx_.url(path);
        return config;
    }

    // There is no telling how long it takes, but the files have to go on growing.
    Recorder::Outcome outcomeOf(Client::RequestId id) const {
        for (std::uintmax_t before = 0;;) {
            try {
                return recorder.await(id);
            } catch (const DeadlineMissed&) {
                const std::uintmax_t now = bytesIn(directory_.path());
                if (now == before) throw;
                before = now;
            }
        }
    }

    const TemporaryDirectory directory_;
    const std::string target_ = directory_.path("target");
    const std::string stored_ = directory_.path("stored");
    // Beside the folder that grows.
    const TemporaryDirectory sources_;
    const std::string source_ = sources_.path("source");
    const NginxServer nginx_;
};

class LargeDownloadTest : public LargeFileTest, public testing::WithParamInterface<std::uintmax_t> {};

INSTANTIATE_TEST_SUITE_P(Of, LargeDownloadTest, testing::Values(Beyond31Bits, Beyond32Bits),
                         testing::PrintToStringParamName());

TEST_P(LargeDownloadTest, ArrivesAsAWholeAndProgressIsCutTo32Bits) {
    makeSparseFile(source_, GetParam());
    const Client::RequestId id = startDownload(to("/source"), target_);
    const Recorder::Outcome outcome = outcomeOf(id);
    ASSERT_TRUE(outcome.response.has_value()) << outcome.error->message;
    EXPECT_EQ(outcome.response->status, 200);
    expectSame(target_, GetParam());

    const std::vector<ProgressData> reports = recorder.progress(id);
    for (const ProgressData& report : reports) EXPECT_EQ(report.total, static_cast<std::uint32_t>(GetParam()));
    EXPECT_EQ(reports.back().received, static_cast<std::uint32_t>(GetParam()));
}

TEST_F(LargeFileTest, ResumedFileGrowsBeyondTwoGibibytes) {
    makeSparseFile(source_, Beyond31Bits);
    makeSparseFile(target_, Beyond31Bits);
    fs::resize_file(target_, Gibibyte);
    RequestConfig config = to("/source");
    config.resume = true;
    const Recorder::Outcome outcome = outcomeOf(startDownload(config, target_));
    ASSERT_TRUE(outcome.response.has_value()) << outcome.error->message;
    EXPECT_EQ(outcome.response->status, 206);
    expectSame(target_, Beyond31Bits);
}

TEST_F(LargeFileTest, LimitOfThreeGibibytesLetsASmallerFileThrough) {
    makeSparseFile(source_, Beyond31Bits);
    RequestConfig config = to("/source");
    config.size_limit = ThreeGibibytes;
    const Recorder::Outcome outcome = outcomeOf(startDownload(config, target_));
    ASSERT_TRUE(outcome.response.has_value()) << outcome.error->message;
    expectSame(target_, Beyond31Bits);
}

TEST_F(LargeFileTest, LimitOfThreeGibibytesRefusesALargerFile) {
    makeSparseFile(source_, Beyond32Bits);
    const LogCapture log("HttpClient", 1);
    RequestConfig config = to("/source");
    config.size_limit = ThreeGibibytes;
    const Recorder::Outcome outcome = outcomeOf(startDownload(config, target_));
    ASSERT_TRUE(outcome.error.has_value());
    // libcurl compares the declared length, where a long can tell it the limit; else the received bytes are counted.
    EXPECT_EQ(outcome.error->failure, sizeof(long) > 4 ? ClientFailure::Other : ClientFailure::WriteFailed);
    EXPECT_EQ(log.contains("Received data exceeds limit"), sizeof(long) == 4);
    EXPECT_THAT(directory_.names(), ElementsAre("stored"));
}

TEST_F(LargeFileTest, UploadArrivesAsAWhole) {
    makeSparseFile(source_, Beyond31Bits);
    RequestConfig config = to("/store/upload");
    config.method = Method::PUT;
    config.body = source_;
    config.body_is_file = true;
    const Recorder::Outcome outcome = outcomeOf(start(config));
    ASSERT_TRUE(outcome.response.has_value()) << outcome.error->message;
    EXPECT_EQ(outcome.response->status, 201);
    expectSame(stored_ + "/upload", Beyond31Bits);
}

}  // namespace
}  // namespace kel::http::test
