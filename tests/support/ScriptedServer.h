// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "FileDescriptor.h"
#include "ReceivedRequest.h"
#include "Reply.h"
#include "ServerJournal.h"
#include "ServerScript.h"
#include "Sockets.h"
#include "WakeUp.h"

namespace kel::http::test {

class ScriptedConnection;

// An HTTP/1.1 server on the loopback interface, on a port of its own, which does exactly what the test says: it answers
// each request with the next enqueued Reply, broken ones included, and records what it was asked.
//
// Where no reply is enqueued the handler is asked; where there is none either the request waits for enqueue(). So a
// test can look at a request first and answer it then.
//
// Threads: all functions may be called from any thread; one thread of its own serves all connections.
// Life:    listens from the constructor on. The destructor drops all connections at once, stalled ones included.
// Errors:  each wait has the one deadline and throws DeadlineMissed after it.
class ScriptedServer {
 public:
    using Handler = std::function<Reply(const ReceivedRequest&)>;

    explicit ScriptedServer(Family family = Family::IPv4);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return port_; }
    // "127.0.0.1:4711" or "[::1]:4711"
    std::string authority() const;
    // "http://127.0.0.1:4711/path"
    std::string url(const std::string& path = "/") const;

    // --- what it answers ---
    // The replies are used in the order in which requests come to their end (or to the end of their header block, for
    // a reply which answers earlier).
    void enqueue(const Reply& reply);
    // Called on the server's thread, once for each request for which no reply is enqueued. It must not throw.
    void onRequest(Handler handler);
    // Ends `pauses` stalls, that which began first before the others; one that is too early counts for the next stall.
    void release(std::size_t pauses = 1);
    // Closes all connections in an orderly way, idle ones as well, and goes on listening.
    void closeConnections();

    // --- what it has seen ---
    // The complete requests, in the order of their ends.
    std::vector<ReceivedRequest> requests() const { return journal_.requests(); }
    // From now on requests() stays as it is, for who sends more than memory holds; counts and waits go on.
    void keepNoRequests() { journal_.keepNoRequests(); }
    // The connections accepted so far, and those of them which are not over.
    std::size_t connectionCount() const { return journal_.connectionCount(); }
    std::size_t openConnectionCount() const { return journal_.openConnectionCount(); }
    // Body bytes the kernel has taken from us, and request body bytes read, over all connections so far.
    std::size_t bodyBytesSent() const { return journal_.bodyBytesSent(); }
    std::size_t bodyBytesReceived() const { return journal_.bodyBytesReceived(); }

    // --- waits, all for totals since the start ---
    void awaitConnections(std::size_t count) const { journal_.awaitConnections(count); }
    void awaitHeaderBlocks(std::size_t count) const { journal_.awaitHeaderBlocks(count); }
    void awaitBodyBytesReceived(std::size_t bytes) const { journal_.awaitBodyBytesReceived(bytes); }
    void awaitRequests(std::size_t count) const { journal_.awaitRequests(count); }
    void awaitBodyBytesSent(std::size_t bytes) const { journal_.awaitBodyBytesSent(bytes); }
    // Until the peer has closed this connection (numbered from 1), or the server has reset it.
    void awaitPeerClosed(std::size_t connection) const { journal_.awaitPeerClosed(connection); }

 private:
    using Connections = std::list<ScriptedConnection>;

    void run();
    void closeConnectionsIfAsked();
    bool answerOldestRequest();
    bool endOldestPause();
    void forgetEndedConnections();
    void serveNextEvents();
    void acceptConnection();

    FileDescriptor listener_;
    std::uint16_t port_;
    Family family_;
    ServerJournal journal_;
    ServerScript script_;
    WakeUp wake_up_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> closing_connections_{false};
    Connections connections_;  // server thread
    std::uint64_t turn_ = 0;   // server thread; counts the connections' turns to another state
    std::thread thread_;
};

}  // namespace kel::http::test
