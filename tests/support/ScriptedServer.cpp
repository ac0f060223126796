// SPDX-License-Identifier: MIT
#include "ScriptedServer.h"

#include <poll.h>
#include <sys/socket.h>

#include <cstdlib>
#include <optional>
#include <utility>

#include "ScriptedConnection.h"

namespace kel::http::test {

namespace {

// The one that has been in this state for longest, or null.
ScriptedConnection* oldestIn(ScriptedConnection::State state, std::list<ScriptedConnection>& connections) {
    ScriptedConnection* oldest = nullptr;
    for (ScriptedConnection& connection : connections) {
        if (connection.state() != state) continue;
        if (oldest == nullptr || connection.since() < oldest->since()) oldest = &connection;
    }
    return oldest;
}

}  // namespace

ScriptedServer::ScriptedServer(Family family)
    : listener_(listenOnLoopback(family)), port_(portOf(listener_)), family_(family) {
    thread_ = std::thread([this] { run(); });
}

ScriptedServer::~ScriptedServer() {
    stopping_ = true;
    wake_up_.signal();
    thread_.join();
}

std::string ScriptedServer::authority() const {
    return loopbackAuthority(port_, family_);
}

std::string ScriptedServer::url(const std::string& path) const {
    return "http://" + authority() + path;
}

void ScriptedServer::enqueue(const Reply& reply) {
    script_.enqueue(reply);
    wake_up_.signal();
}

void ScriptedServer::onRequest(Handler handler) {
    script_.setHandler(std::move(handler));
    wake_up_.signal();
}

void ScriptedServer::release(std::size_t pauses) {
    script_.permitPauses(pauses);
    wake_up_.signal();
}

void ScriptedServer::closeConnections() {
    closing_connections_ = true;
    wake_up_.signal();
}

void ScriptedServer::run() {
    while (!stopping_) {
        forgetEndedConnections();
        closeConnectionsIfAsked();
        // Each may lead to the other: the end of a stall uncovers a request that has been waiting behind it.
        while (answerOldestRequest() || endOldestPause()) {
        }
        serveNextEvents();
    }
}

void ScriptedServer::closeConnectionsIfAsked() {
    if (!closing_connections_.exchange(false)) return;
    for (ScriptedConnection& connection : connections_) connection.closeOurSide();
}

bool ScriptedServer::answerOldestRequest() {
    ScriptedConnection* const connection = oldestIn(ScriptedConnection::State::WantsReply, connections_);
    if (connection == nullptr) return false;
    const std::optional<Reply> reply = script_.takeFor(connection->request());
    if (!reply) return false;
    connection->answer(*reply);
    return true;
}

bool ScriptedServer::endOldestPause() {
    ScriptedConnection* const connection = oldestIn(ScriptedConnection::State::Paused, connections_);
    if (connection == nullptr || !script_.takePermit()) return false;
    connection->endPause();
    return true;
}

void ScriptedServer::forgetEndedConnections() {
    connections_.remove_if(
        [](const ScriptedConnection& connection) { return connection.state() == ScriptedConnection::State::Ended; });
}

void ScriptedServer::serveNextEvents() {
    std::vector<pollfd> wanted{{wake_up_.descriptor(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    for (const ScriptedConnection& connection : connections_) wanted.push_back(connection.wantedEvents());
    if (poll(wanted.data(), wanted.size(), -1) < 0) return;

    if (wanted[0].revents != 0) wake_up_.clear();
    auto entry = wanted.begin() + 2;
    for (ScriptedConnection& connection : connections_) {
        if (entry->revents != 0) connection.serve(entry->revents);
        ++entry;
    }
    if (wanted[1].revents != 0) acceptConnection();
}

void ScriptedServer::acceptConnection() {
    FileDescriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.get() >= 0) connections_.emplace_back(std::move(socket), script_, journal_, turn_);
}

}  // namespace kel::http::test
