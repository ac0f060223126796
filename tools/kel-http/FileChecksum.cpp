// SPDX-License-Identifier: MIT
#include "FileChecksum.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "ToolError.h"
#include "ko/to_hex.h"

namespace kel::http::tool {
namespace {

constexpr std::size_t block_size = 131072;

}  // namespace

FileChecksum::FileChecksum(int descriptor, const std::string& path)
    : descriptor_(descriptor), path_(path), block_(block_size) {}

bool FileChecksum::proceed() {
    constexpr int blocks = 32;
    for (int i = 0; i < blocks; ++i) {
        if (!take_block()) return true;
    }
    return false;
}

bool FileChecksum::take_block() {
    const auto count = pread(descriptor_, block_.data(), block_.size(), static_cast<off_t>(position_));
    if (count < 0) {
        const std::string reason = std::generic_category().message(errno);
        throw ToolError(LocalFileError, fmt::format("can not read '{}': {}", path_, reason));
    }
    digest_->do_update({block_.data(), static_cast<std::size_t>(count)});
    position_ += static_cast<std::uint64_t>(count);
    return count > 0;
}

std::string FileChecksum::result() {
    return ko::to_hex(digest_->done());
}

}  // namespace kel::http::tool
