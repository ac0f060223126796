// SPDX-License-Identifier: MIT
#include "ScriptedConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>
#include <vector>

namespace kel::http::test {

ScriptedConnection::ScriptedConnection(FileDescriptor socket, ServerScript& script, ServerJournal& journal,
                                       std::uint64_t& turn)
    : socket_(std::move(socket)), script_(script), journal_(journal), turn_(turn), number_(journal.noteConnection()) {
    // Else a step of a few bytes would wait for the peer's delayed acknowledgement of the one before.
    const int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

pollfd ScriptedConnection::wantedEvents() const {
    int events = POLLRDHUP;
    if (!deaf_) events |= POLLIN;
    if (state_ == State::Sending) events |= POLLOUT;
    return {socket_.get(), static_cast<short>(events), 0};
}

void ScriptedConnection::serve(short events) {
    const bool peer_has_gone = (events & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
    if (deaf_ && peer_has_gone) return end();
    if (!deaf_ && (peer_has_gone || (events & POLLIN) != 0) && !receive()) return end();
    proceed();
}

void ScriptedConnection::answer(const Reply& reply) {
    begin(reply.steps(request_));
    proceed();
}

void ScriptedConnection::endPause() {
    deaf_ = false;
    enter(State::Sending);
    proceed();
}

void ScriptedConnection::closeOurSide() {
    steps_.clear();
    deaf_ = false;
    shutdown(socket_.get(), SHUT_WR);
    // Closing the socket now would reset the connection where the peer is still sending.
    enter(State::Lingering);
}

void ScriptedConnection::enter(State state) {
    state_ = state;
    since_ = ++turn_;
}

void ScriptedConnection::end() {
    socket_.reset();
    enter(State::Ended);
    journal_.noteEnd(number_);
}

void ScriptedConnection::reset() {
    const linger at_once{1, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    end();
}

// Returns whether the peer is still there.
bool ScriptedConnection::receive() {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    if (state_ != State::Lingering) parser_.append(bytes.data(), static_cast<std::size_t>(count));
    return count != 0;
}

void ScriptedConnection::proceed() {
    for (;;) {
        if (state_ == State::Sending && !takeSteps()) return;
        if (state_ != State::Reading || !readRequest()) return;
    }
}

// Returns whether all steps have been taken.
bool ScriptedConnection::takeSteps() {
    while (!steps_.empty()) {
        switch (steps_.front().kind) {
            case ReplyStep::Kind::Send:
            case ReplyStep::Kind::SendBody:
                if (!send(steps_.front())) return false;
                steps_.pop_front();
                break;
            case ReplyStep::Kind::Pause:
                steps_.pop_front();
                enter(State::Paused);
                return false;
            case ReplyStep::Kind::Close:
                closeOurSide();
                return false;
            case ReplyStep::Kind::Reset:
                reset();
                return false;
        }
    }
    enter(State::Reading);
    return true;
}

// Returns whether the whole step has been sent.
bool ScriptedConnection::send(const ReplyStep& step) {
    while (sent_of_step_ < step.bytes.size()) {
        const ssize_t count = ::send(socket_.get(), step.bytes.data() + sent_of_step_,
                                     step.bytes.size() - sent_of_step_, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            if (errno != EAGAIN && errno != EINTR) end();
            return false;
        }
        sent_of_step_ += static_cast<std::size_t>(count);
        if (step.kind == ReplyStep::Kind::SendBody) journal_.noteBodyBytesSent(static_cast<std::size_t>(count));
    }
    sent_of_step_ = 0;
    return true;
}

// Returns whether there has been anything to read.
bool ScriptedConnection::readRequest() {
    const RequestParser::Progress progress = parser_.advance();
    noteBodyBytes();
    switch (progress) {
        case RequestParser::Progress::NeedsMore:
            return false;
        case RequestParser::Progress::HeaderBlock:
            takeHeaderBlock();
            return true;
        case RequestParser::Progress::Complete:
            takeRequest();
            return true;
        case RequestParser::Progress::Broken:
            closeOurSide();
            return false;
    }
    return false;
}

void ScriptedConnection::noteBodyBytes() {
    const std::size_t size = parser_.request().body.size();
    if (size == noted_body_bytes_) return;
    journal_.noteBodyBytesReceived(size - noted_body_bytes_);
    noted_body_bytes_ = size;
}

void ScriptedConnection::takeHeaderBlock() {
    journal_.noteHeaderBlock();
    early_reply_ = script_.takeForHeaderBlock();
    switch (early_reply_ ? early_reply_->upload() : Reply::Upload::Read) {
        case Reply::Upload::Read:
            if (parser_.expectsContinue()) begin({{ReplyStep::Kind::Send, "HTTP/1.1 100 Continue\r\n\r\n"}});
            return;
        case Reply::Upload::IgnoreExpect:
            return;
        case Reply::Upload::Stall:
            deaf_ = true;
            begin({{ReplyStep::Kind::Pause, {}}});
            return;
        case Reply::Upload::AnswerAtOnce:
            if (parser_.expectsContinue()) return parser_.giveUpBody();
            answered_early_ = true;
            begin(early_reply_->steps(parser_.request()));
            return;
    }
}

void ScriptedConnection::takeRequest() {
    request_ = parser_.take();
    request_.connection = number_;
    noted_body_bytes_ = 0;
    journal_.noteRequest(request_);
    if (std::exchange(answered_early_, false)) return;
    if (early_reply_) return begin(std::exchange(early_reply_, std::nullopt)->steps(request_));
    enter(State::WantsReply);
}

void ScriptedConnection::begin(const std::vector<ReplyStep>& steps) {
    steps_.assign(steps.begin(), steps.end());
    enter(State::Sending);
}

}  // namespace kel::http::test
