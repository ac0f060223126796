// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <utility>

namespace kel::http::test {

// Owns one descriptor and closes it.
class FileDescriptor {
 public:
    explicit FileDescriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() { reset(); }

    int get() const noexcept { return descriptor_; }

    void reset() noexcept {
        if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
    }

 private:
    int descriptor_;
};

}  // namespace kel::http::test
