// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "ReceivedRequest.h"

namespace kel::http::test {

// Takes the requests of one connection out of its bytes, one after the other.
class RequestParser {
 public:
    enum class Progress {
        NeedsMore,    // more bytes are wanted
        HeaderBlock,  // the header block has just come to its end; the body, if any, follows
        Complete,     // the request is complete; take() it before going on
        Broken,       // this is not HTTP; nothing further can be read
    };

    void append(const char* bytes, std::size_t count) { buffer_.append(bytes, count); }

    // Goes on up to the next thing worth telling.
    Progress advance();

    // The request so far.
    const ReceivedRequest& request() const { return request_; }

    // Whether its sender waits for "100 Continue".
    bool expectsContinue() const;

    // The request has been answered early and its body will not come.
    void giveUpBody() { state_ = State::Complete; }

    // Ends with this request and returns it.
    ReceivedRequest take();

 private:
    enum class State { HeaderBlock, Body, ChunkHead, ChunkBody, ChunkEnd, Trailers, Complete };

    // Each takes one part out of the buffer; nothing to tell means that the next part is due.
    using News = std::optional<Progress>;
    News parsePart();
    News parseHeaderLine();
    News parseRequestLine(const std::string& line);
    News startBody();
    News parseBody(State next);
    News parseChunkHead();
    News parseChunkEnd();
    News parseTrailer();
    bool takeLine(std::string& line);

    State state_ = State::HeaderBlock;
    std::string buffer_;
    std::size_t missing_ = 0;  // of the body or the chunk
    ReceivedRequest request_;
};

}  // namespace kel::http::test
