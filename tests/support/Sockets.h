// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "FileDescriptor.h"

namespace kel::http::test {

// The addresses of this machine that the tests use.
enum class Family {
    IPv4,       // 127.0.0.1
    OtherIPv4,  // 127.0.0.2, which no list of hosts that need no proxy names
    IPv6,       // ::1
};

// A socket bound to the loopback interface, on a port that was free. Errors: std::system_error.
FileDescriptor bindToLoopback(Family family = Family::IPv4);

// The same for a server that is told its port and listens there later: nobody else is given that port meanwhile.
FileDescriptor reserveOnLoopback();

// Whether a server listens on a reserved port. It is not connected to.
bool isListenedOn(std::uint16_t port);

// A bound socket, listening and not blocking.
FileDescriptor listenOnLoopback(Family family, int backlog = 1024);

// Begins to connect a socket which does not block; false where that is not done at once. Errors: std::system_error.
bool startToConnect(const FileDescriptor& socket, std::uint16_t port);

// A connection to this port on the loopback interface, blocking and made when this returns. Errors: std::system_error.
FileDescriptor connectToLoopback(std::uint16_t port, Family family = Family::IPv4);

std::uint16_t portOf(const FileDescriptor& socket);

// "127.0.0.1:4711", "127.0.0.2:4711" or "[::1]:4711"
std::string loopbackAuthority(std::uint16_t port, Family family = Family::IPv4);

// Throws std::system_error with errno and `what`.
[[noreturn]] void throwErrno(const char* what);

}  // namespace kel::http::test
