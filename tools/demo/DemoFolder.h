// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::demo {

// A folder for the files that are sent and received; it goes with this object.
class DemoFolder {
 public:
    // Errors: std::runtime_error.
    DemoFolder();
    ~DemoFolder();
    DemoFolder(const DemoFolder&) = delete;
    DemoFolder& operator=(const DemoFolder&) = delete;

    // Makes a file of `size` bytes, of every value, and returns its path.
    std::string make(const std::string& name, std::size_t size);

    std::string path_of(const std::string& name) const { return path_ + '/' + name; }

 private:
    std::string path_;
};

std::string content_of(const std::string& path);

}  // namespace kel::http::demo
