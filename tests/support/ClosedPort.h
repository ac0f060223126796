// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "FileDescriptor.h"

namespace kel::http::test {

// A port of the loopback interface which refuses connections, and which nobody else can take while this object lives.
class ClosedPort {
 public:
    ClosedPort();

    std::uint16_t port() const { return port_; }
    std::string url(const std::string& path = "/") const;

 private:
    FileDescriptor bound_;
    std::uint16_t port_;
};

}  // namespace kel::http::test
