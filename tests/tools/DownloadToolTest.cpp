// SPDX-License-Identifier: MIT
#include "DownloadToolTest.h"

#include <algorithm>
#include <filesystem>
#include <random>

#include "AwaitFile.h"

namespace kel::http::test {

std::string noise(std::size_t size) {
    std::minstd_rand random(42);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random() >> 8U); });
    return bytes;
}

void awaitSize(const std::string& path, std::size_t bytes) {
    awaitFile(path, std::to_string(bytes) + " bytes", [&] { return std::filesystem::file_size(path) >= bytes; });
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
