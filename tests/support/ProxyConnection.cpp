// SPDX-License-Identifier: MIT
#include "ProxyConnection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace kel::http::test {

namespace {

bool mayTryAgain() {
    return errno == EAGAIN || errno == EINTR;
}

// Else short pieces would wait for the peer's delayed acknowledgements.
void sendAtOnce(const FileDescriptor& socket) {
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

// A connection to "127.0.0.2:80"; no descriptor where there is none.
FileDescriptor connectTo(const std::string& target) {
    const std::size_t colon = target.rfind(':');
    union {
        sockaddr any;
        sockaddr_in v4;
    } address = {};
    address.v4.sin_family = AF_INET;
    if (colon == std::string::npos) return FileDescriptor();
    if (inet_pton(AF_INET, target.substr(0, colon).c_str(), &address.v4.sin_addr) != 1) return FileDescriptor();
    address.v4.sin_port = htons(static_cast<std::uint16_t>(std::atoi(target.c_str() + colon + 1)));

    FileDescriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(result.get(), &address.any, sizeof(address.v4)) != 0) return FileDescriptor();
    return result;
}

}  // namespace

bool TunnelFlow::move(const FileDescriptor& from, const FileDescriptor& to) {
    if (wantsToRead() && !read(from)) return false;
    if (wantsToWrite() && !write(to)) return false;
    if (source_ended_ && bytes_.empty() && !over_) {
        shutdown(to.get(), SHUT_WR);
        over_ = true;
    }
    return true;
}

bool TunnelFlow::read(const FileDescriptor& from) {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(from.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0) return mayTryAgain();
    source_ended_ = count == 0;
    bytes_.assign(bytes.data(), static_cast<std::size_t>(count));
    return true;
}

bool TunnelFlow::write(const FileDescriptor& to) {
    const ssize_t count = send(to.get(), bytes_.data(), bytes_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) return mayTryAgain();
    bytes_.erase(0, static_cast<std::size_t>(count));
    return true;
}

ProxyConnection::ProxyConnection(FileDescriptor client, CountingProxy& proxy)
    : proxy_(proxy), client_(std::move(client)) {
    sendAtOnce(client_);
}

std::array<pollfd, 2> ProxyConnection::wantedEvents() const {
    if (state_ != State::Tunnel) return {{{client_.get(), POLLIN, 0}, {-1, 0, 0}}};
    const auto events = [](const TunnelFlow& out_of_it, const TunnelFlow& into_it) {
        return static_cast<short>((out_of_it.wantsToRead() ? POLLIN : 0) | (into_it.wantsToWrite() ? POLLOUT : 0));
    };
    return {{{client_.get(), events(upwards_, downwards_), 0}, {target_.get(), events(downwards_, upwards_), 0}}};
}

void ProxyConnection::serve() {
    switch (state_) {
        case State::Reading:
            return readRequest();
        case State::Tunnel:
            return moveBytes();
        case State::Ignoring:
            return ignoreBytes();
        case State::Ended:
            return;
    }
}

void ProxyConnection::readRequest() {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(client_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && mayTryAgain()) return;
    if (count <= 0) return end();
    parser_.append(bytes.data(), static_cast<std::size_t>(count));
    RequestParser::Progress progress = parser_.advance();
    if (progress == RequestParser::Progress::HeaderBlock) progress = parser_.advance();
    if (progress == RequestParser::Progress::Complete) return take(parser_.take());
    if (progress == RequestParser::Progress::Broken) return end();
}

void ProxyConnection::take(const ReceivedRequest& request) {
    proxy_.note(request);
    const CountingProxy::Options& options = proxy_.options_;
    const CountingProxy::Behaviour behaviour = proxy_.behaviour_;
    if (behaviour == CountingProxy::Behaviour::Silent || behaviour == CountingProxy::Behaviour::Close) {
        state_ = State::Ignoring;
    } else if (behaviour == CountingProxy::Behaviour::Refuse) {
        refuse(std::to_string(options.status) + " Refused");
    } else if (request.method != "CONNECT") {
        refuse("405 Method Not Allowed");
    } else if (!options.authorization.empty() && request.header("Proxy-Authorization") != options.authorization) {
        reply("407 Proxy Authentication Required\r\nProxy-Authenticate: Basic realm=\"kel\"\r\nContent-Length: 0");
    } else {
        openTunnel(request.target);
    }
}

void ProxyConnection::openTunnel(const std::string& target) {
    target_ = connectTo(target);
    if (target_.get() < 0) return refuse("502 Bad Gateway");
    sendAtOnce(target_);
    reply("200 Connection established");
    state_ = State::Tunnel;
}

// A new connection takes this much without waiting.
void ProxyConnection::reply(const std::string& status) {
    const std::string bytes = "HTTP/1.1 " + status + "\r\n\r\n";
    send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void ProxyConnection::refuse(const std::string& status) {
    reply(status + "\r\nContent-Length: 0\r\nConnection: close");
    shutdown(client_.get(), SHUT_WR);
    // Closing the socket now could reset the connection, and the answer would be lost.
    state_ = State::Ignoring;
}

void ProxyConnection::moveBytes() {
    if (!upwards_.move(client_, target_) || !downwards_.move(target_, client_)) return end();
    if (upwards_.isOver() && downwards_.isOver()) end();
}

void ProxyConnection::ignoreBytes() {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(client_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && !mayTryAgain())) end();
}

void ProxyConnection::end() {
    client_.reset();
    target_.reset();
    state_ = State::Ended;
}

}  // namespace kel::http::test
