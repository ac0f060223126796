// SPDX-License-Identifier: MIT
#include "SmallDisk.h"

#include <sched.h>
#include <sys/mount.h>

#include "support/Sockets.h"

namespace kel::http::test {
namespace {

std::string sizeOption(std::size_t bytes) {
    return "size=" + std::to_string(bytes);
}

}  // namespace

SmallDisk::SmallDisk(std::size_t bytes) {
    if (unshare(CLONE_NEWNS) != 0) return;
    // What is mounted here is not to be seen elsewhere.
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    is_mounted_ = mount("none", folder_.path().c_str(), "tmpfs", 0, sizeOption(bytes).c_str()) == 0;
}

SmallDisk::~SmallDisk() {
    if (is_mounted_) umount2(folder_.path().c_str(), MNT_DETACH);
}

void SmallDisk::resize(std::size_t bytes) const {
    remount(0, sizeOption(bytes).c_str());
}

void SmallDisk::makeReadOnly() const {
    remount(MS_RDONLY, nullptr);
}

void SmallDisk::remount(unsigned long flags, const char* options) const {
    if (mount("none", folder_.path().c_str(), nullptr, MS_REMOUNT | flags, options) != 0) throwErrno("mount");
}

}  // namespace kel::http::test
