// SPDX-License-Identifier: MIT
#include "Sockets.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace kel::http::test {

namespace {

// A loopback address of either family, as the socket calls want it.
class LoopbackAddress {
 public:
    LoopbackAddress(Family family, std::uint16_t port) {
        if (family != Family::IPv6) {
            size_ = sizeof(address_.v4);
            address_.v4.sin_family = AF_INET;
            address_.v4.sin_port = htons(port);
            address_.v4.sin_addr.s_addr = htonl(family == Family::IPv4 ? INADDR_LOOPBACK : INADDR_LOOPBACK + 1);
        } else {
            size_ = sizeof(address_.v6);
            address_.v6.sin6_family = AF_INET6;
            address_.v6.sin6_port = htons(port);
            address_.v6.sin6_addr = in6addr_loopback;
        }
    }

    const sockaddr* get() const { return &address_.any; }
    socklen_t size() const { return size_; }

 private:
    union {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    } address_ = {};
    socklen_t size_;
};

FileDescriptor makeSocket(Family family) {
    FileDescriptor result(socket(family == Family::IPv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (result.get() < 0) throwErrno("socket");
    return result;
}

// Several of these may be bound to one port as long as none of them listens.
FileDescriptor makeSharingSocket() {
    FileDescriptor result = makeSocket(Family::IPv4);
    const int on = 1;
    if (setsockopt(result.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) throwErrno("setsockopt");
    return result;
}

void bindTo(const LoopbackAddress& address, const FileDescriptor& socket) {
    if (bind(socket.get(), address.get(), address.size()) != 0) throwErrno("bind");
}

}  // namespace

FileDescriptor bindToLoopback(Family family) {
    FileDescriptor result = makeSocket(family);
    bindTo(LoopbackAddress(family, 0), result);
    return result;
}

FileDescriptor reserveOnLoopback() {
    FileDescriptor result = makeSharingSocket();
    bindTo(LoopbackAddress(Family::IPv4, 0), result);
    return result;
}

bool isListenedOn(std::uint16_t port) {
    const FileDescriptor another = makeSharingSocket();
    const LoopbackAddress address(Family::IPv4, port);
    return bind(another.get(), address.get(), address.size()) != 0 && errno == EADDRINUSE;
}

FileDescriptor listenOnLoopback(Family family, int backlog) {
    FileDescriptor result = bindToLoopback(family);
    if (listen(result.get(), backlog) != 0) throwErrno("listen");
    if (fcntl(result.get(), F_SETFL, O_NONBLOCK) != 0) throwErrno("fcntl");
    return result;
}

bool startToConnect(const FileDescriptor& socket, std::uint16_t port) {
    const LoopbackAddress address(Family::IPv4, port);
    if (connect(socket.get(), address.get(), address.size()) == 0) return true;
    if (errno != EINPROGRESS) throwErrno("connect");
    return false;
}

FileDescriptor connectToLoopback(std::uint16_t port, Family family) {
    FileDescriptor result = makeSocket(family);
    const LoopbackAddress address(family, port);
    if (connect(result.get(), address.get(), address.size()) != 0) throwErrno("connect");
    return result;
}

std::uint16_t portOf(const FileDescriptor& socket) {
    union {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    } address = {};
    socklen_t size = sizeof(address);
    if (getsockname(socket.get(), &address.any, &size) != 0) throwErrno("getsockname");
    return ntohs(address.any.sa_family == AF_INET ? address.v4.sin_port : address.v6.sin6_port);
}

std::string loopbackAuthority(std::uint16_t port, Family family) {
    const std::string number = ':' + std::to_string(port);
    switch (family) {
        case Family::IPv4:
            return "127.0.0.1" + number;
        case Family::OtherIPv4:
            return "127.0.0.2" + number;
        case Family::IPv6:
            return "[::1]" + number;
    }
    return {};
}

void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace kel::http::test
