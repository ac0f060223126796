// SPDX-License-Identifier: MIT
#include "SpoiledFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kel::http::test {
namespace {

constexpr mode_t open_to_others = 0755;

}  // namespace

SpoiledFolder::SpoiledFolder()
    : path_("/tmp/kel-http-" + std::to_string(geteuid())),
      lock_(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
      made_(flock(lock_.get(), LOCK_EX) == 0 && mkdir(path_.c_str(), open_to_others) == 0) {
    chmod(path_.c_str(), open_to_others);
}

// Another process may have found the place empty, and keep something there.
SpoiledFolder::~SpoiledFolder() {
    if (made_ && rmdir(path_.c_str()) == 0) return;
    chmod(path_.c_str(), 0700);
}

}  // namespace kel::http::test
