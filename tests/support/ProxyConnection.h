// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <array>
#include <string>

#include "CountingProxy.h"
#include "FileDescriptor.h"
#include "ReceivedRequest.h"
#include "RequestParser.h"

namespace kel::http::test {

// One direction of a tunnel.
class TunnelFlow {
 public:
    // Moves what can be moved without waiting. Returns false when one of the two sides has broken.
    bool move(const FileDescriptor& from, const FileDescriptor& to);

    bool wantsToRead() const { return !source_ended_ && bytes_.empty(); }
    bool wantsToWrite() const { return !bytes_.empty(); }
    // The source has ended, and the other side has been told so.
    bool isOver() const { return over_; }

 private:
    bool read(const FileDescriptor& from);
    bool write(const FileDescriptor& to);

    std::string bytes_;
    bool source_ended_ = false;
    bool over_ = false;
};

// One connection of a CountingProxy.
//
// Threads: the proxy's, for everything.
class ProxyConnection {
 public:
    ProxyConnection(FileDescriptor client, CountingProxy& proxy);

    // Those of the client's socket and of the target's, which may not be there.
    std::array<pollfd, 2> wantedEvents() const;
    // Does what can be done without waiting.
    void serve();
    bool hasEnded() const { return state_ == State::Ended; }

 private:
    enum class State {
        Reading,   // a request is awaited or has come in part
        Tunnel,    // bytes are moved
        Ignoring,  // nothing that comes is looked at; ends when the client goes
        Ended,     // over, to be forgotten
    };

    void readRequest();
    void take(const ReceivedRequest& request);
    void openTunnel(const std::string& target);
    void reply(const std::string& status);
    void refuse(const std::string& status);
    void moveBytes();
    void ignoreBytes();
    void end();

    CountingProxy& proxy_;
    FileDescriptor client_;
    FileDescriptor target_;
    State state_ = State::Reading;
    RequestParser parser_;
    TunnelFlow upwards_;
    TunnelFlow downwards_;
};

}  // namespace kel::http::test
