// SPDX-License-Identifier: MIT
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <thread>

#include "fixture/ClientTest.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

namespace fs = std::filesystem;

// Reads a file over and over and counts what `isGood` does not hold of. A file that is not there is left out.
class Reader {
 public:
    Reader(const std::string& path, const std::function<bool(const std::string&)>& isGood)
        : thread_([this, path, isGood] {
              for (std::string bytes; !done_;) {
                  if (!read(path, bytes)) continue;
                  if (!isGood(bytes)) ++bad_;
                  readings_.add("read");
              }
          }) {}
    ~Reader() {
        done_ = true;
        thread_.join();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void awaitReadings(std::size_t count) const { readings_.awaitCount(count); }
    unsigned bad() const { return bad_; }

 private:
    // One open(): whatever is renamed meanwhile, this reads one file.
    static bool read(const std::string& path, std::string& bytes) {
        const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (file.get() < 0) return false;
        bytes.resize(static_cast<std::size_t>(fs::file_size("/proc/self/fd/" + std::to_string(file.get()))));
        std::size_t size = 0;
        for (ssize_t count = 1; count > 0 && size < bytes.size(); size += static_cast<std::size_t>(count)) {
            count = std::max<ssize_t>(::read(file.get(), bytes.data() + size, bytes.size() - size), 0);
        }
        bytes.resize(size);
        return true;
    }

    std::atomic<bool> done_{false};
    EventLog readings_;
    std::atomic<unsigned> bad_{0};
    std::thread thread_;
};

// Somebody looks at the target all the time while it is downloaded, over and over.
class DownloadReaderTest : public ClientTest {
 protected:
    DownloadReaderTest() {
        for (std::size_t n = 0; n < files_.size(); ++n) {
            files_[n].assign(2000000 + n * 500000, static_cast<char>('a' + n));
            files_[n].back() = '.';
            nginx_.writeFile(std::to_string(n), files_[n]);
        }
    }

    void download(std::size_t file, bool resume = false) {
        RequestConfig config;
        config.url = nginx_.url('/' + std::to_string(file));
        config.resume = resume;
        ASSERT_TRUE(recorder.await(startDownload(config, target_)).response.has_value());
    }

    NginxServer nginx_;
    std::array<std::string, 2> files_;
    const TemporaryDirectory directory_;
    const std::string target_ = directory_.path("f");
};

TEST_F(DownloadReaderTest, ATargetIsAlwaysTheOldFileOrTheWholeNewOne) {
    download(0);
    const Reader reader(target_, [this](const std::string& bytes) { return bytes == files_[0] || bytes == files_[1]; });
    for (std::size_t times = 1; times < 60; ++times) download(times % 2);
    reader.awaitReadings(10);
    EXPECT_EQ(reader.bad(), 0U);
}

TEST_F(DownloadReaderTest, AResumedTargetIsAlwaysABeginningOfTheWholeFile) {
    const Reader reader(target_, [this](const std::string& bytes) {
        return bytes.size() <= files_[0].size() && files_[0].compare(0, bytes.size(), bytes) == 0;
    });
    for (int times = 0; times < 60; ++times) {
        download(0, true);
        if (times % 2 == 1) fs::remove(target_);
    }
    download(0, true);
    reader.awaitReadings(10);
    EXPECT_EQ(reader.bad(), 0U);
}

}  // namespace
}  // namespace kel::http::test
