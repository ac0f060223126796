// SPDX-License-Identifier: MIT
#include "OneReplyServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace {

int listen_on_any_port() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    listen(listener, 1);
    return listener;
}

}  // namespace

OneReplyServer::OneReplyServer(const std::string& body)
    : reply_("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
             body),
      listener_(listen_on_any_port()),
      thread_([this] { serve(); }) {}

OneReplyServer::~OneReplyServer() {
    shutdown(listener_, SHUT_RDWR);  // ends accept(), should nobody have come
    thread_.join();
    close(listener_);
}

std::string OneReplyServer::url() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
}

void OneReplyServer::serve() const {
    const int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) return;
    std::string request;
    std::array<char, 4096> piece{};
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t size = recv(connection, piece.data(), piece.size(), 0);
        if (size <= 0) break;
        request.append(piece.data(), static_cast<std::size_t>(size));
    }
    send(connection, reply_.data(), reply_.size(), MSG_NOSIGNAL);
    close(connection);
}
