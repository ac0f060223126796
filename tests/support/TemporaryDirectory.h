// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kel::http::test {

// A fresh, empty folder, removed with all it holds at the end, by the process that made it: a fork of a death test, which
// may end with a copy of it, takes nothing from the others.
//
// Errors: the constructor throws std::system_error when the folder can not be made; the destructor says nothing.
class TemporaryDirectory {
 public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Without a slash at its end.
    const std::string& path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + '/' + name; }

    // The names directly in the folder, sorted: what a test finds left behind.
    std::vector<std::string> names() const;

 private:
    std::string path_;
    pid_t owner_;
};

}  // namespace kel::http::test
