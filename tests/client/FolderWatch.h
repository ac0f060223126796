// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "support/FileDescriptor.h"

namespace kel::http::test {

// Every name that comes and goes in a folder, however short its life, from the constructor on.
//
// Errors: std::system_error.
class FolderWatch {
 public:
    explicit FolderWatch(const std::string& folder);

    // What has happened since the last call: "create NAME", "from NAME" and "to NAME" for the two sides of a move,
    // "remove NAME".
    std::vector<std::string> events();

 private:
    FileDescriptor watch_;
};

}  // namespace kel::http::test
