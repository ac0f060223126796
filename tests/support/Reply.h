// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ReceivedRequest.h"

namespace kel::http::test {

// What a ScriptedServer does next, one thing at a time.
struct ReplyStep {
    enum class Kind {
        Send,      // send `bytes`
        SendBody,  // send `bytes`, which count as body bytes
        Pause,     // wait for release()
        Close,     // end our side in an orderly way, as a server does
        Reset,     // drop the connection, so that the peer sees a reset
    };
    Kind kind;
    std::string bytes;
};

// The scripted answer to one request, good or broken, put together by chained calls:
//
//     Reply(200).header("X-Answer", "42").body("first half").stallBeforeEnd()
//
// Without a named fault it is an ordinary HTTP/1.1 reply with Content-Length, after which the connection stays open
// (unless the request came with HTTP/1.0 or "Connection: close"). A reply to HEAD, one with status 204, 304 or 1xx and
// a successful one to CONNECT are sent without their body.
//
// Threads: none of its own; a plain value.
class Reply {
 public:
    // Any number is taken as the status, also one HTTP does not know. The reason of 200 is "OK" unless given.
    explicit Reply(int status, std::string reason = {});

    // Exactly these bytes take the place of a reply. They count as body bytes; body() and pause() add to them.
    static Reply raw(std::string bytes);

    static Reply redirect(const std::string& location, int status = 302);

    // --- the head ---
    Reply& header(const std::string& name, const std::string& value);
    // A line of the header block, sent as it is, with a line end after it.
    Reply& badHeader(std::string line);
    // The protocol at the begin of the status line, "HTTP/1.1" by default.
    Reply& version(std::string protocol);
    // An interim reply (1xx) ahead of the real one; several are sent in the order of the calls.
    Reply& interim(int status, const std::vector<std::string>& header_lines = {});

    // --- the body ---
    // Appends to the body. With chunked() each call makes a chunk of its own.
    Reply& body(std::string bytes);
    // Nothing further is sent before ScriptedServer::release(); Content-Length still counts what follows.
    Reply& pause();
    // body() for each piece, pause() between them: each release() lets the next piece out.
    Reply& drip(const std::vector<std::string>& pieces);
    Reply& chunked();
    // A line after the last chunk; only with chunked().
    Reply& trailer(std::string line);
    // Neither Content-Length nor chunks: the body ends where the connection does.
    Reply& untilClose();
    // A complete reply, after which the server closes without having announced it.
    Reply& closeAfterwards();

    // --- faults in the head: the body is never sent, except after a stall ---
    Reply& stallBeforeHeaders();
    // The status line and the given headers are sent, the empty line not before release().
    Reply& stallInsideHeaders();
    Reply& closeBeforeHeaders();
    Reply& closeInsideHeaders();
    Reply& resetBeforeHeaders();

    // --- faults in the body ---
    // Silence after the body given so far, until release(); then `rest` is sent and the reply is complete.
    Reply& stallBeforeEnd(std::string rest = "the rest");
    // The body ends `missing` bytes before its announced end (or before the last chunk).
    Reply& closeInsideBody(std::size_t missing = 100);
    Reply& resetInsideBody(std::size_t missing = 100);

    // --- towards a request with a body. Only for replies which are already enqueued when the request comes ---
    // Answers as soon as the header block has come. With "Expect: 100-continue" no body is awaited.
    Reply& answerBeforeBody();
    // Nothing is read after the header block before release(). The kernel buffers some MB nevertheless.
    Reply& stallBeforeRequestBody();
    // "Expect: 100-continue" is not answered; usually it is.
    Reply& ignoreExpect();

    // What the server does while a request body is to come.
    enum class Upload { Read, AnswerAtOnce, Stall, IgnoreExpect };
    Upload upload() const { return upload_; }

    // The whole reply to `request` as steps.
    std::vector<ReplyStep> steps(const ReceivedRequest& request) const;

 private:
    enum class Framing { Length, Chunked, UntilClose, Raw };
    enum class HeadFault { None, Stall, StallInside, Close, CloseInside, Reset };
    enum class End { Complete, Close, CloseShort, ResetShort };

    std::string head(const ReceivedRequest& request) const;
    bool hasHeader(const std::string& name) const;
    bool hasNoBody(const ReceivedRequest& request) const;
    std::size_t announcedLength() const;
    bool appendHead(std::vector<ReplyStep>& steps, const ReceivedRequest& request) const;
    void appendBody(std::vector<ReplyStep>& steps) const;
    void appendEnd(std::vector<ReplyStep>& steps, const ReceivedRequest& request) const;

    int status_;
    std::string reason_;
    std::string version_ = "HTTP/1.1";
    std::vector<std::string> interims_;
    std::vector<std::string> header_lines_;
    std::vector<ReplyStep> body_;  // SendBody and Pause only
    std::vector<std::string> trailers_;
    Framing framing_ = Framing::Length;
    HeadFault head_fault_ = HeadFault::None;
    End end_ = End::Complete;
    std::size_t missing_ = 0;
    Upload upload_ = Upload::Read;
};

}  // namespace kel::http::test
