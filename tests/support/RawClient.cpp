// SPDX-License-Identifier: MIT
#include "RawClient.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "Deadline.h"

namespace kel::http::test {

RawClient::RawClient(std::uint16_t port, Family family) : socket_(connectToLoopback(port, family)) {
    const timeval deadline{Deadline.count(), 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline));
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof(deadline));
}

void RawClient::send(const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) throwErrno("send");
        sent += static_cast<std::size_t>(count);
    }
}

std::string RawClient::receive(std::size_t count) {
    while (received_.size() < count && receiveMore()) {
    }
    return take(count);
}

std::string RawClient::receiveUntil(const std::string& end) {
    while (received_.find(end) == std::string::npos) {
        if (!receiveMore()) return take(received_.size());
    }
    return take(received_.find(end) + end.size());
}

std::string RawClient::receiveAll() {
    while (receiveMore()) {
    }
    return take(received_.size());
}

void RawClient::get(const std::string& target, const std::string& header_lines) {
    send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + header_lines + "\r\n");
}

// Returns false where the peer has closed.
bool RawClient::receiveMore() {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0) throwErrno("recv");
    received_.append(bytes.data(), static_cast<std::size_t>(count));
    return count != 0;
}

std::string RawClient::take(std::size_t count) {
    std::string taken = received_.substr(0, count);
    received_.erase(0, count);
    return taken;
}

}  // namespace kel::http::test
