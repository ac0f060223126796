// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "FileDescriptor.h"
#include "ReceivedRequest.h"
#include "Reply.h"
#include "RequestParser.h"
#include "ServerJournal.h"
#include "ServerScript.h"

namespace kel::http::test {

// One connection of a ScriptedServer: reads requests, takes the steps of their replies.
//
// Threads: the server's, for everything.
class ScriptedConnection {
 public:
    enum class State {
        Reading,     // a request is awaited or has come in part
        WantsReply,  // a request is complete, the server has to answer() it
        Sending,     // there are steps to take, as far as the peer reads
        Paused,      // in a stall, until endPause()
        Lingering,   // our side is closed, the peer's is not
        Ended,       // over, to be forgotten
    };

    // `turn` is common to all connections of the server.
    ScriptedConnection(FileDescriptor socket, ServerScript& script, ServerJournal& journal, std::uint64_t& turn);

    State state() const { return state_; }
    // The turn at which the present state began.
    std::uint64_t since() const { return since_; }
    const ReceivedRequest& request() const { return request_; }

    pollfd wantedEvents() const;
    void serve(short events);
    void answer(const Reply& reply);
    void endPause();
    void closeOurSide();

 private:
    void enter(State state);
    void end();
    void reset();
    bool receive();
    void proceed();
    bool takeSteps();
    bool send(const ReplyStep& step);
    bool readRequest();
    void noteBodyBytes();
    void takeHeaderBlock();
    void takeRequest();
    void begin(const std::vector<ReplyStep>& steps);

    FileDescriptor socket_;
    ServerScript& script_;
    ServerJournal& journal_;
    std::uint64_t& turn_;
    const std::size_t number_;

    State state_ = State::Reading;
    std::uint64_t since_ = 0;
    bool deaf_ = false;  // nothing is read during a stall before the request body

    RequestParser parser_;
    std::size_t noted_body_bytes_ = 0;
    std::optional<Reply> early_reply_;  // taken at the end of the header block
    bool answered_early_ = false;
    ReceivedRequest request_;

    std::deque<ReplyStep> steps_;
    std::size_t sent_of_step_ = 0;
};

}  // namespace kel::http::test
