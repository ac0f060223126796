// SPDX-License-Identifier: MIT
#include "CountingProxy.h"

#include <poll.h>
#include <sys/socket.h>

#include <utility>

#include "Deadline.h"
#include "ProxyConnection.h"
#include "Sockets.h"

namespace kel::http::test {

namespace {

CountingProxy::Options optionsFor(CountingProxy::Behaviour behaviour) {
    CountingProxy::Options options;
    options.behaviour = behaviour;
    return options;
}

}  // namespace

CountingProxy::CountingProxy(Behaviour behaviour) : CountingProxy(optionsFor(behaviour)) {}

CountingProxy::CountingProxy(const Options& options)
    : options_(options),
      listener_(listenOnLoopback(Family::IPv4)),
      port_(portOf(listener_)),
      behaviour_(options.behaviour) {
    thread_ = std::thread([this] { run(); });
}

CountingProxy::~CountingProxy() {
    stopping_ = true;
    wake_up_.signal();
    thread_.join();
}

std::string CountingProxy::url() const {
    return "http://" + loopbackAuthority(port_);
}

std::size_t CountingProxy::connectionCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connection_count_;
}

std::size_t CountingProxy::openConnectionCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return open_connection_count_;
}

std::vector<ReceivedRequest> CountingProxy::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::vector<std::string> CountingProxy::authorizations() const {
    std::vector<std::string> values;
    for (const ReceivedRequest& request : requests()) {
        for (const std::string& value : request.headers("Proxy-Authorization")) values.push_back(value);
    }
    return values;
}

void CountingProxy::awaitConnections(std::size_t count) const {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitUntil(changed_, lock, std::to_string(count) + " connections", [&] { return connection_count_ >= count; });
}

void CountingProxy::awaitRequests(std::size_t count) const {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitUntil(changed_, lock, std::to_string(count) + " requests", [&] { return requests_.size() >= count; });
}

void CountingProxy::awaitNoConnection() const {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitUntil(changed_, lock, "the end of all connections", [&] { return open_connection_count_ == 0; });
}

void CountingProxy::run() {
    while (!stopping_) {
        forgetEndedConnections();
        serveNextEvents();
    }
}

void CountingProxy::forgetEndedConnections() {
    connections_.remove_if([](const ProxyConnection& connection) { return connection.hasEnded(); });
    const std::lock_guard<std::mutex> lock(mutex_);
    open_connection_count_ = connections_.size();
    changed_.notify_all();
}

void CountingProxy::serveNextEvents() {
    std::vector<pollfd> wanted{{wake_up_.descriptor(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    for (const ProxyConnection& connection : connections_) {
        for (const pollfd& events : connection.wantedEvents()) wanted.push_back(events);
    }
    if (poll(wanted.data(), wanted.size(), -1) < 0) return;

    if (wanted[0].revents != 0) wake_up_.clear();
    auto entry = wanted.begin() + 2;
    for (ProxyConnection& connection : connections_) {
        const auto client = entry++;
        const auto target = entry++;
        if (client->revents != 0 || target->revents != 0) connection.serve();
    }
    if (wanted[1].revents != 0) acceptConnection();
}

void CountingProxy::acceptConnection() {
    FileDescriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.get() < 0) return;
    // Noted first: a client that has seen the end of its connection finds it counted.
    if (options_.uses != nullptr) options_.uses->add(options_.name);
    const std::lock_guard<std::mutex> lock(mutex_);
    ++connection_count_;
    changed_.notify_all();
    if (behaviour_ == Behaviour::Close) return;
    connections_.emplace_back(std::move(socket), *this);
    ++open_connection_count_;
}

void CountingProxy::note(const ReceivedRequest& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
    changed_.notify_all();
}

}  // namespace kel::http::test
