// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "checksum/Digest.h"

namespace kel::http::tool {

// The SHA-256 of a whole file, a few megabytes at a time, so that whoever computes it can do other things in between.
class FileChecksum {
 public:
    // The file has to stay open.
    FileChecksum(int descriptor, const std::string& path);

    // Reads on. True: the end has been reached.
    //
    // Errors: ToolError with LocalFileError.
    bool proceed();

    // In lower-case hexadecimal digits; once, at the end.
    std::string result();

 private:
    bool take_block();

    const int descriptor_;
    const std::string path_;
    std::uint64_t position_ = 0;
    std::vector<unsigned char> block_;
    const std::unique_ptr<checksum::Digest> digest_ = checksum::sha256();
};

}  // namespace kel::http::tool
