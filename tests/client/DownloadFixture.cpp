// SPDX-License-Identifier: MIT
#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "client/DownloadTest.h"
#include "ko/to_hex.h"

namespace kel::http::test {
namespace {

constexpr std::size_t BlockSize = 1U << 20U;

void feed(checksum::Digest& digest, const std::string& bytes, std::size_t count) {
    digest.do_update({reinterpret_cast<const unsigned char*>(bytes.data()), count});
}

}  // namespace

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t n = 0; n < size; ++n) bytes[n] = static_cast<char>((n * 7 + n / 251) & 0xFFU);
    return bytes;
}

std::string writeLargeFile(const std::string& path, std::size_t size) {
    const auto digest = checksum::sha256();
    std::ofstream file(path, std::ios::binary);
    std::string block = pattern(std::min(size, BlockSize));
    for (std::size_t left = size; left > 0;) {
        const std::string number = std::to_string(left) + ' ';
        const std::size_t count = std::min(left, BlockSize);
        if (count == BlockSize) block.replace(0, number.size(), number);
        file.write(block.data(), static_cast<std::streamsize>(count));
        feed(*digest, block, count);
        left -= count;
    }
    file.close();
    if (!file) throw std::runtime_error("can not write " + path);
    return ko::to_hex(digest->done());
}

std::string sha256OfFile(const std::string& path) {
    const auto digest = checksum::sha256();
    std::ifstream file(path, std::ios::binary);
    std::string block(BlockSize, '\0');
    do {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        feed(*digest, block, static_cast<std::size_t>(file.gcount()));
    } while (file);
    return ko::to_hex(digest->done());
}

std::string sha256Of(const std::string& bytes) {
    const auto digest = checksum::sha256();
    feed(*digest, bytes, bytes.size());
    return ko::to_hex(digest->done());
}

testing::Matcher<std::string> isPart() {
    return testing::MatchesRegex("f\\.bin\\.downloading-[0123456789abdcef]{8}");
}

ResponseData DownloadTest::response(const RequestConfig& config) {
    return responseOf(startDownload(config));
}

ErrorData DownloadTest::error(const RequestConfig& config) {
    return errorOf(startDownload(config));
}

ResponseData DownloadTest::responseOf(Client::RequestId id) {
    const Recorder::Outcome outcome = onlyOutcomeOf(id);
    if (outcome.response) return *outcome.response;
    ADD_FAILURE() << "an error: " << outcome.error->message;
    return {0, {}, {}};
}

ErrorData DownloadTest::errorOf(Client::RequestId id) {
    const Recorder::Outcome outcome = onlyOutcomeOf(id);
    if (outcome.error) return *outcome.error;
    ADD_FAILURE() << "a response: " << outcome.response->status;
    return {ClientFailure::Other, "no error"};
}

Recorder::Outcome DownloadTest::onlyOutcomeOf(Client::RequestId id) {
    const Recorder::Outcome told = recorder.await(id);
    drain();
    const auto all = recorder.outcomes();
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [id](const Recorder::Outcome& one) { return one.id == id; }), 1);
    return told;
}

Client::RequestId DownloadTest::startDownload(const RequestConfig& config) {
    return startDownload(config, target);
}

void DownloadTest::useDigest(const std::function<std::unique_ptr<checksum::Digest>()>& factory) {
    ClientOptions options;
    options.download_digest = factory;
    client = createClient(executor, *logging::getLogger("TestClient", 0), options);
}

RequestConfig DownloadTest::resuming() const {
    RequestConfig config = get();
    config.resume = true;
    return config;
}

RequestConfig DownloadTest::keeping() const {
    RequestConfig config = get();
    config.keep_partial_download = true;
    return config;
}

}  // namespace kel::http::test
