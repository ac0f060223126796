// SPDX-License-Identifier: MIT
#include "DownloadToolTest.h"

#include <poll.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "support/Deadline.h"

namespace kel::http::test {

std::string noise(std::size_t size) {
    std::minstd_rand random(42);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random() >> 8U); });
    return bytes;
}

void awaitSize(const std::string& path, std::size_t bytes) {
    // Watched before it is looked at: no write can come unnoticed in between.
    const FileDescriptor watch = watchForWrites(path);
    while (std::filesystem::file_size(path) < bytes) {
        pollfd written{watch.get(), POLLIN, 0};
        constexpr auto milliseconds = static_cast<int>(std::chrono::milliseconds(Deadline).count());
        if (poll(&written, 1, milliseconds) == 0) throw DeadlineMissed(std::to_string(bytes) + " bytes in " + path);
        forgetWrites(watch);
    }
}

std::vector<std::string> DownloadToolTest::words(const std::vector<std::string>& options) const {
    std::vector<std::string> all = {"download", server.url("/file"), target};
    all.insert(all.end(), options.begin(), options.end());
    return all;
}

ToolResult DownloadToolTest::download(const Reply& reply, const std::vector<std::string>& options) {
    server.enqueue(reply);
    return download(options);
}

Reply DownloadToolTest::rest(const std::string& whole, std::size_t from) {
    return Reply(206)
        .header("Content-Range", "bytes " + std::to_string(from) + "-" + std::to_string(whole.size() - 1) + "/" +
                                     std::to_string(whole.size()))
        .body(whole.substr(from));
}

}  // namespace kel::http::test
