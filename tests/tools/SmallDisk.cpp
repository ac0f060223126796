// SPDX-License-Identifier: MIT
#include "SmallDisk.h"

#include <sched.h>
#include <sys/mount.h>

#include "support/Sockets.h"

namespace kel::http::test {

SmallDisk::SmallDisk(std::size_t bytes) {
    if (unshare(CLONE_NEWNS) != 0) return;
    // What is mounted here is not to be seen elsewhere.
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    const std::string size = "size=" + std::to_string(bytes);
    is_mounted_ = mount("none", folder_.path().c_str(), "tmpfs", 0, size.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
    if (is_mounted_) umount2(folder_.path().c_str(), MNT_DETACH);
}

void SmallDisk::makeReadOnly() const {
    if (mount("none", folder_.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) throwErrno("mount");
}

}  // namespace kel::http::test
