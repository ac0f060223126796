// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::demo {

// Files to send, in a folder of their own that goes with this object.
class SentFiles {
 public:
    // Errors: std::runtime_error.
    SentFiles();
    ~SentFiles();
    SentFiles(const SentFiles&) = delete;
    SentFiles& operator=(const SentFiles&) = delete;

    // Makes a file of `size` bytes, of every value, and returns its path.
    std::string make(const std::string& name, std::size_t size);

 private:
    std::string folder_;
};

std::string content_of(const std::string& path);

}  // namespace kel::http::demo
