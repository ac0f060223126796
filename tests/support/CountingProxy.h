// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EventLog.h"
#include "FileDescriptor.h"
#include "ReceivedRequest.h"
#include "WakeUp.h"

namespace kel::http::test {

class ProxyConnection;

// A proxy for CONNECT on the loopback interface, on a port of its own, which behaves as the test says and counts what it
// is asked. It connects to numeric IPv4 addresses only.
//
// Threads: all functions may be called from any thread; one thread of its own serves all connections.
// Life:    listens from the constructor on. The destructor drops all connections at once.
// Errors:  each wait has the one deadline and throws DeadlineMissed after it.
class CountingProxy {
 public:
    enum class Behaviour {
        Tunnel,  // connects to the target, or answers 502 where that fails
        Refuse,  // answers with a status of the test's choice and closes
        Silent,  // accepts connections and reads requests, but never says a word
        Close,   // closes each connection as soon as it is there
    };

    struct Options {
        Behaviour behaviour = Behaviour::Tunnel;
        // For Refuse.
        int status = 403;
        // For Tunnel: what "Proxy-Authorization" has to be; others get 407 and may ask again. Empty: nothing is asked
        // for.
        std::string authorization = {};
        // Notes `name` for each connection: the order of use across several proxies.
        EventLog* uses = nullptr;
        std::string name = {};
    };

    CountingProxy() : CountingProxy(Options()) {}
    explicit CountingProxy(Behaviour behaviour);
    explicit CountingProxy(const Options& options);
    ~CountingProxy();
    CountingProxy(const CountingProxy&) = delete;
    CountingProxy& operator=(const CountingProxy&) = delete;

    std::uint16_t port() const { return port_; }
    // "http://127.0.0.1:4711"
    std::string url() const;

    // For the connections and requests that come from now on.
    void setBehaviour(Behaviour behaviour) { behaviour_ = behaviour; }

    // --- what it has seen ---
    // The connections accepted so far, and those of them that are not over.
    std::size_t connectionCount() const;
    std::size_t openConnectionCount() const;
    // The requests, in the order in which they came, those that were refused included.
    std::vector<ReceivedRequest> requests() const;
    // The values of "Proxy-Authorization" in them; none for a request without.
    std::vector<std::string> authorizations() const;

    // --- waits: the first two for totals since the start, the last until all connections are over ---
    void awaitConnections(std::size_t count) const;
    void awaitRequests(std::size_t count) const;
    void awaitNoConnection() const;

 private:
    friend class ProxyConnection;

    void run();
    void serveNextEvents();
    void acceptConnection();
    void forgetEndedConnections();
    void note(const ReceivedRequest& request);

    const Options options_;
    FileDescriptor listener_;
    std::uint16_t port_;
    std::atomic<Behaviour> behaviour_;
    WakeUp wake_up_;
    std::atomic<bool> stopping_{false};

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::size_t connection_count_ = 0;
    std::size_t open_connection_count_ = 0;
    std::vector<ReceivedRequest> requests_;

    std::list<ProxyConnection> connections_;  // its thread
    std::thread thread_;
};

}  // namespace kel::http::test
