// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "FileDescriptor.h"

namespace kel::http::test {

// Listens on the loopback interface and accepts nobody.
class SilentListener {
 public:
    enum class Connects {
        Succeed,  // the kernel makes the connections, nobody ever reads or answers
        Hang,     // the queue is full: connecting does not get any further
    };

    explicit SilentListener(Connects connects = Connects::Succeed);

    std::uint16_t port() const { return port_; }
    std::string url(const std::string& path = "/") const;

 private:
    FileDescriptor listener_;
    std::uint16_t port_;
    FileDescriptor filler_;
};

}  // namespace kel::http::test
