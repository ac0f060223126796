// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "FileDescriptor.h"

namespace kel::http::test {

// The folder for temporary files that this user has below /tmp is open to others as long as this lives, so that it is not
// used. One at a time on the machine, whatever process it is in; the second one waits.
class SpoiledFolder {
 public:
    SpoiledFolder();
    ~SpoiledFolder();
    SpoiledFolder(const SpoiledFolder&) = delete;
    SpoiledFolder& operator=(const SpoiledFolder&) = delete;

 private:
    const std::string path_;
    const FileDescriptor lock_;
    const bool made_;
};

}  // namespace kel::http::test
