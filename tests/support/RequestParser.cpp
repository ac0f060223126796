// SPDX-License-Identifier: MIT
#include "RequestParser.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace kel::http::test {

namespace {

// Whether the whole text is a number.
bool readNumber(const std::string& text, int base, std::size_t& number) {
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && rest == end;
}

}  // namespace

RequestParser::Progress RequestParser::advance() {
    for (;;) {
        if (const News news = parsePart()) return *news;
    }
}

bool RequestParser::expectsContinue() const {
    return strcasecmp(request_.header("Expect").value_or("").c_str(), "100-continue") == 0;
}

ReceivedRequest RequestParser::take() {
    state_ = State::HeaderBlock;
    return std::exchange(request_, {});
}

RequestParser::News RequestParser::parsePart() {
    switch (state_) {
        case State::HeaderBlock:
            return parseHeaderLine();
        case State::Body:
            return parseBody(State::Complete);
        case State::ChunkHead:
            return parseChunkHead();
        case State::ChunkBody:
            return parseBody(State::ChunkEnd);
        case State::ChunkEnd:
            return parseChunkEnd();
        case State::Trailers:
            return parseTrailer();
        case State::Complete:
            return Progress::Complete;
    }
    return Progress::Broken;
}

RequestParser::News RequestParser::parseHeaderLine() {
    std::string line;
    if (!takeLine(line)) return Progress::NeedsMore;
    if (request_.method.empty()) return parseRequestLine(line);
    if (line.empty()) return startBody();
    request_.header_lines.push_back(line);
    return std::nullopt;
}

RequestParser::News RequestParser::parseRequestLine(const std::string& line) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string::npos || first == 0 || first == last) return Progress::Broken;
    request_.method = line.substr(0, first);
    request_.target = line.substr(first + 1, last - first - 1);
    request_.version = line.substr(last + 1);
    return std::nullopt;
}

RequestParser::News RequestParser::startBody() {
    const std::string encoding = request_.header("Transfer-Encoding").value_or("");
    if (strcasecmp(encoding.c_str(), "chunked") == 0) {
        state_ = State::ChunkHead;
        return Progress::HeaderBlock;
    }
    if (!readNumber(request_.header("Content-Length").value_or("0"), 10, missing_)) return Progress::Broken;
    state_ = missing_ == 0 ? State::Complete : State::Body;
    return Progress::HeaderBlock;
}

RequestParser::News RequestParser::parseBody(State next) {
    const std::size_t count = std::min(missing_, buffer_.size());
    request_.body.append(buffer_, 0, count);
    buffer_.erase(0, count);
    missing_ -= count;
    if (missing_ != 0) return Progress::NeedsMore;
    state_ = next;
    return std::nullopt;
}

RequestParser::News RequestParser::parseChunkHead() {
    std::string line;
    if (!takeLine(line)) return Progress::NeedsMore;
    if (!readNumber(line, 16, missing_)) return Progress::Broken;
    state_ = missing_ == 0 ? State::Trailers : State::ChunkBody;
    return std::nullopt;
}

RequestParser::News RequestParser::parseChunkEnd() {
    std::string line;
    if (!takeLine(line)) return Progress::NeedsMore;
    if (!line.empty()) return Progress::Broken;
    state_ = State::ChunkHead;
    return std::nullopt;
}

RequestParser::News RequestParser::parseTrailer() {
    std::string line;
    if (!takeLine(line)) return Progress::NeedsMore;
    if (line.empty()) state_ = State::Complete;
    return std::nullopt;
}

bool RequestParser::takeLine(std::string& line) {
    const std::size_t end = buffer_.find('\n');
    if (end == std::string::npos) return false;
    line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

}  // namespace kel::http::test
