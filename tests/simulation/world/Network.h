// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "world/Time.h"

namespace kel::http::simulation {

// IPv4, in the order of the host.
struct Address {
    std::uint32_t ip = 0;
    std::uint16_t port = 0;

    bool operator<(const Address& other) const { return ip != other.ip ? ip < other.ip : port < other.port; }
    std::string text() const;
};

class Link;

// The server's end of a connection: a script. It is told things at the moment at which they happen, and plans its answers.
class Peer {
 public:
    virtual ~Peer() = default;
    virtual void onBytes(Link& link, std::string_view bytes) = 0;
    // The client has closed.
    virtual void onClose() {}
};

// What a connection does beyond its server's doing.
struct LinkFaults {
    std::int64_t mostReceived = 0;  // bytes that one recv gets at most; 0: all there are
    std::int64_t mostSent = 0;      // the same of a send
    std::int64_t interrupted = 0;   // every so many-th call fails with EINTR; 0: none
    bool sendsAtOnce = false;       // no send is interrupted
};

// A connection, as the server sees it.
class Link {
 public:
    explicit Link(int descriptor, const Address& to) : descriptor_(descriptor), to_(to) {}

    int descriptor() const { return descriptor_; }
    const Address& to() const { return to_; }

    // What reaches the client at that time, behind all that was planned before; then the end in either way.
    void send(Time at, std::string bytes) { plan({at, std::move(bytes), Event::Data}); }
    void finish(Time at) { plan({at, {}, Event::Finish}); }
    void reset(Time at) { plan({at, {}, Event::Reset}); }
    // When the last of it comes.
    Time planned() const { return wire_.empty() ? Time(0) : wire_.back().at; }
    // What has been planned, which then is not any more.
    struct Event {
        enum Kind { Data, Finish, Reset };
        Time at;
        std::string bytes;
        Kind kind;
    };
    std::deque<Event> takePlanned() { return std::exchange(wire_, {}); }
    // So many bytes of the client's are still taken; then none until `more` at that time. Less than 0: all.
    void take(std::int64_t bytes) { room_ = bytes; }
    // None are, though it seems so until somebody has tried.
    void takeNothing() {
        room_ = 0;
        seemsWritable = true;
    }

    // From now on nobody at the other end says or hears anything, without a word of farewell.
    void fallSilent();
    // Breaks at once: what was under way is lost.
    void breakNow();

    // --- for Sockets ---
    enum class State { Fresh, Connecting, Connected, Refused };
    void arrive(Time now);
    Time nextEvent(Time now);
    bool isReadable(Time now);
    bool isWritable(Time now);

    State state = State::Fresh;
    Time connectedAt = Never;
    int error = 0;
    LinkFaults faults;
    // Calls since the last interruption, and whether one of them got any further.
    std::int64_t calls = 0;
    bool hasMoved = true;
    bool seemsWritable = false;
    std::string arrived;
    bool finished = false;
    bool wasReset = false;
    std::int64_t room() const { return room_; }
    void use(std::int64_t bytes) {
        if (room_ >= 0) room_ -= bytes;
    }
    std::shared_ptr<Peer> peer;

 private:
    void plan(Event event);

    const int descriptor_;
    const Address to_;
    std::deque<Event> wire_;
    std::int64_t room_ = -1;
};

// The sockets of the process, by their descriptors, and who listens where.
class Network {
 public:
    // How a connection comes about: after `delay`, or with an error of connect(2) then; Never: nobody ever answers.
    struct Acceptance {
        Time delay = Time(0);
        int error = 0;
        std::shared_ptr<Peer> peer;
        LinkFaults faults;
    };
    using Listener = std::function<Acceptance(Link&)>;

    void listen(const Address& address, Listener listener) { listeners_[address] = std::move(listener); }
    // What a connection of that link's to another address than its own would meet.
    Acceptance acceptAt(const Address& address, Link& link);
    // For each connection there is.
    void each(const std::function<void(Link&)>& deed);
    // Where new connections get no answer; empty: nowhere.
    std::function<bool(const Address&)> isCutOff;

    // --- for Sockets ---
    bool has(int descriptor) const { return links_.count(descriptor) != 0; }
    Link* find(int descriptor);
    Link& open(int descriptor, const Address& to);
    void reserve(int descriptor) { links_[descriptor] = nullptr; }
    void close(int descriptor);
    Acceptance accept(Link& link) { return acceptAt(link.to(), link); }
    Time nextEvent(Time now);

    std::size_t openSockets() const { return links_.size(); }
    std::int64_t made() const { return made_; }

 private:
    std::map<Address, Listener> listeners_;
    std::map<int, std::unique_ptr<Link>> links_;
    std::int64_t made_ = 0;
};

}  // namespace kel::http::simulation
