// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

#include "support/TemporaryDirectory.h"

namespace kel::http::test {

// A file system of its own, in memory and as large as is asked for. Only the thread that made it sees it, and the
// processes that this thread starts.
class SmallDisk {
 public:
    explicit SmallDisk(std::size_t bytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // Whether it is there: not everybody may mount.
    bool isMounted() const { return is_mounted_; }

    const TemporaryDirectory& folder() const { return folder_; }

    void resize(std::size_t bytes) const;
    void makeReadOnly() const;

 private:
    void remount(unsigned long flags, const char* options) const;

    TemporaryDirectory folder_;
    bool is_mounted_ = false;
};

}  // namespace kel::http::test
