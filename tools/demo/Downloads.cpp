// SPDX-License-Identifier: MIT
#include "Downloads.h"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "ProgressLine.h"
#include "common/FailureName.h"

namespace kel::http::demo {
namespace {

constexpr std::uint64_t mib = 1048576;
// Slow enough for a bar to be seen.
constexpr std::uint32_t bytes_per_second = 24 * mib;
// Slower still, so that there is time to interrupt it before all is there, on a busy machine as well.
constexpr std::uint32_t interrupted_bytes_per_second = 8 * mib;
constexpr const char* checksum_format = "{:<18} {}";
constexpr const char* whole_file = "whole.bin";
constexpr const char* parted_file = "parted.bin";

ClientOptions with_checksum() {
    ClientOptions options;
    options.download_digest = [] { return checksum::sha256(); };
    return options;
}

}  // namespace

Downloads::Downloads(EventLoop& loop, const OriginServer& server, const DemoFolder& folder)
    : loop_(loop),
      server_(server),
      folder_(folder),
      client_(createClient(loop.executor(), *logging::getLogger("kel-http-demo", 0), with_checksum())) {}

bool Downloads::run() {
    fmt::print("Downloads of an image of {} MiB\n", server_.image_bytes / mib);
    const std::string of_response = download_whole();
    download_a_part();
    download_the_rest();
    compare_checksums(of_response);
    return as_expected_;
}

std::string Downloads::download_whole() {
    fmt::print("\nIn one go, {} MiB a second at most:\n", bytes_per_second / mib);
    const Outcome outcome = download(whole_file, request(false, bytes_per_second));
    tell(outcome.name, outcome.name == "200");
    return outcome.checksum;
}

void Downloads::download_a_part() {
    fmt::print("\nOnce more, {} MiB a second at most, and interrupted on the way:\n",
               interrupted_bytes_per_second / mib);
    const Outcome outcome = download(parted_file, request(true, interrupted_bytes_per_second), server_.image_bytes / 8);
    const std::uint64_t size = size_of(parted_file);
    const bool as_expected = outcome.name == "interrupted" && size > 0 && size < server_.image_bytes;
    tell(fmt::format("{} with {} in the file", outcome.name, tool::bytes_text(size)), as_expected);
}

void Downloads::download_the_rest() {
    fmt::print("\nResumed from where the file ends:\n");
    const std::uint64_t size = size_of(parted_file);
    const Outcome outcome = download(parted_file, request(true, bytes_per_second));
    const std::uint64_t received = size_of(parted_file) - size;
    tell(fmt::format("{} with the {} that were missing", outcome.name, tool::bytes_text(received)),
         outcome.name == "206" && size + received == server_.image_bytes);
}

RequestConfig Downloads::request(bool resume, std::uint32_t speed_limit) const {
    RequestConfig request;
    request.url = server_.url("/image");
    request.resume = resume;
    request.speed_limit = speed_limit;
    return request;
}

Downloads::Outcome Downloads::download(const std::string& file, const RequestConfig& request,
                                       std::uint64_t most_bytes) {
    const std::uint64_t size_before = size_of(file);
    ProgressLine line(file);
    Outcome outcome;
    const auto on_response = [&outcome](Client::RequestId, const ResponseData& response) {
        outcome = {std::to_string(response.status), response.body};
    };
    const auto on_error = [&outcome](Client::RequestId, const ErrorData& error) {
        outcome = {std::string(tool::failure_name(error.failure)), {}};
    };
    const auto on_progress = [this, &line, &outcome, size_before, most_bytes](Client::RequestId id,
                                                                              const ProgressData& progress) {
        // The report of a complete body counts the new bytes only.
        const std::uint64_t uncounted = progress.received == progress.total ? size_before : 0;
        line.show(progress.received + uncounted, progress.total + uncounted);
        if (progress.received < most_bytes) return;
        client_->cancel_request(id);
        loop_.after_engine([&outcome] { outcome.name = "interrupted"; });
    };
    client_->start_download(request, folder_.path_of(file), {}, on_response, on_error, on_progress);
    loop_.run_until([&outcome] { return !outcome.name.empty(); }, "/image");
    return outcome;
}

void Downloads::compare_checksums(const std::string& of_response) {
    const std::string expected = server_.image_checksum();
    const auto compare = [this, &expected](const std::string& name, const std::string& checksum) {
        tell(fmt::format(checksum_format, name, checksum), checksum == expected);
    };
    fmt::print("\nSHA-256:\n  {}\n", fmt::format(checksum_format, "of the image", expected));
    compare("taken on the way", of_response);
    for (const char* const file : {whole_file, parted_file}) {
        compare(fmt::format("of {}", file), sha256_of(content_of(folder_.path_of(file))));
    }
}

std::uint64_t Downloads::size_of(const std::string& file) const {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(folder_.path_of(file), error);
    return error ? 0 : size;
}

void Downloads::tell(const std::string& what, bool as_expected) {
    as_expected_ = as_expected_ && as_expected;
    fmt::print("  {}  {}\n", what, as_expected ? "ok" : "WRONG");
}

}  // namespace kel::http::demo
