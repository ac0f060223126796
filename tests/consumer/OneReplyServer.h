// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <thread>

// Answers one request on a port of its own on 127.0.0.1: status 200, with this body.
class OneReplyServer {
 public:
    explicit OneReplyServer(const std::string& body);
    ~OneReplyServer();
    OneReplyServer(const OneReplyServer&) = delete;
    OneReplyServer& operator=(const OneReplyServer&) = delete;

    std::string url() const;

 private:
    void serve() const;

    const std::string reply_;
    const int listener_;
    std::thread thread_;
};
