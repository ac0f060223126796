// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ReceivedRequest.h"

namespace kel::http::test {

// What a ScriptedServer has seen and done, and the waits for it. Threads: any.
class ServerJournal {
 public:
    // The server's side. The first returns the connection's number.
    std::size_t noteConnection();
    void noteHeaderBlock();
    void noteBodyBytesReceived(std::size_t bytes);
    void noteRequest(const ReceivedRequest& request);
    void noteBodyBytesSent(std::size_t bytes);
    void noteEnd(std::size_t connection);

    // The test's side, as ScriptedServer has it.
    std::vector<ReceivedRequest> requests() const;
    void keepNoRequests();
    std::size_t connectionCount() const;
    std::size_t openConnectionCount() const;
    std::size_t bodyBytesSent() const;
    std::size_t bodyBytesReceived() const;
    void awaitConnections(std::size_t count) const;
    void awaitHeaderBlocks(std::size_t count) const;
    void awaitBodyBytesReceived(std::size_t bytes) const;
    void awaitRequests(std::size_t count) const;
    void awaitBodyBytesSent(std::size_t bytes) const;
    void awaitPeerClosed(std::size_t connection) const;

 private:
    void add(std::size_t& total, std::size_t amount);
    std::size_t read(const std::size_t& total) const;
    void awaitTotal(const char* name, const std::size_t& total, std::size_t wanted) const;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<ReceivedRequest> requests_;
    bool keeping_ = true;
    std::set<std::size_t> ended_;
    std::size_t connections_ = 0;
    std::size_t header_blocks_ = 0;
    std::size_t body_bytes_received_ = 0;
    std::size_t request_count_ = 0;
    std::size_t body_bytes_sent_ = 0;
};

}  // namespace kel::http::test
