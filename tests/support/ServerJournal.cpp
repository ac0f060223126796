// SPDX-License-Identifier: MIT
#include "ServerJournal.h"

#include "Deadline.h"

namespace kel::http::test {

std::size_t ServerJournal::noteConnection() {
    add(connections_, 1);
    return connectionCount();
}

void ServerJournal::noteHeaderBlock() {
    add(header_blocks_, 1);
}

void ServerJournal::noteBodyBytesReceived(std::size_t bytes) {
    add(body_bytes_received_, bytes);
}

void ServerJournal::noteRequest(const ReceivedRequest& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (keeping_) requests_.push_back(request);
    ++request_count_;
    changed_.notify_all();
}

void ServerJournal::noteBodyBytesSent(std::size_t bytes) {
    add(body_bytes_sent_, bytes);
}

void ServerJournal::noteEnd(std::size_t connection) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_.insert(connection);
    changed_.notify_all();
}

std::vector<ReceivedRequest> ServerJournal::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void ServerJournal::keepNoRequests() {
    const std::lock_guard<std::mutex> lock(mutex_);
    keeping_ = false;
}

std::size_t ServerJournal::connectionCount() const {
    return read(connections_);
}

std::size_t ServerJournal::openConnectionCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connections_ - ended_.size();
}

std::size_t ServerJournal::bodyBytesSent() const {
    return read(body_bytes_sent_);
}

std::size_t ServerJournal::bodyBytesReceived() const {
    return read(body_bytes_received_);
}

void ServerJournal::awaitConnections(std::size_t count) const {
    awaitTotal("connections", connections_, count);
}

void ServerJournal::awaitHeaderBlocks(std::size_t count) const {
    awaitTotal("header blocks", header_blocks_, count);
}

void ServerJournal::awaitBodyBytesReceived(std::size_t bytes) const {
    awaitTotal("request body bytes", body_bytes_received_, bytes);
}

void ServerJournal::awaitRequests(std::size_t count) const {
    awaitTotal("requests", request_count_, count);
}

void ServerJournal::awaitBodyBytesSent(std::size_t bytes) const {
    awaitTotal("body bytes sent", body_bytes_sent_, bytes);
}

void ServerJournal::awaitPeerClosed(std::size_t connection) const {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitUntil(changed_, lock, "the end of connection " + std::to_string(connection),
               [&] { return ended_.count(connection) != 0; });
}

void ServerJournal::add(std::size_t& total, std::size_t amount) {
    const std::lock_guard<std::mutex> lock(mutex_);
    total += amount;
    changed_.notify_all();
}

std::size_t ServerJournal::read(const std::size_t& total) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return total;
}

void ServerJournal::awaitTotal(const char* name, const std::size_t& total, std::size_t wanted) const {
    std::unique_lock<std::mutex> lock(mutex_);
    if (changed_.wait_for(lock, Deadline, [&] { return total >= wanted; })) return;
    throw DeadlineMissed(std::to_string(wanted) + ' ' + name + ", but " + std::to_string(total));
}

}  // namespace kel::http::test
