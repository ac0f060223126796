// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "FileDescriptor.h"
#include "Sockets.h"

namespace kel::http::test {

// The plainest peer of a server: one connection on the loopback interface, bytes as the test gives them.
//
// Threads: one, which blocks in each function, for no longer than the one deadline.
// Errors:  std::system_error where nothing else is said, after the deadline as well.
class RawClient {
 public:
    explicit RawClient(std::uint16_t port, Family family = Family::IPv4);

    void send(const std::string& bytes);

    // Exactly `count` bytes, or fewer where the peer closes before.
    std::string receive(std::size_t count);
    // All up to and including `end`, or up to where the peer closes.
    std::string receiveUntil(const std::string& end);
    // All up to where the peer closes.
    std::string receiveAll();

    // Sends a GET for `target` with `header_lines`, each with its line end.
    void get(const std::string& target, const std::string& header_lines = {});

    void close() { socket_.reset(); }

 private:
    bool receiveMore();
    std::string take(std::size_t count);

    FileDescriptor socket_;
    std::string received_;
};

}  // namespace kel::http::test
