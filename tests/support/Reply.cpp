// SPDX-License-Identifier: MIT
#include "Reply.h"

#include <strings.h>

#include <utility>

namespace kel::http::test {

namespace {

constexpr const char* LineEnd = "\r\n";

void append(std::vector<ReplyStep>& steps, ReplyStep::Kind kind, std::string bytes = {}) {
    steps.push_back({kind, std::move(bytes)});
}

std::string chunkHead(std::size_t size) {
    constexpr const char* Digits = "0123456789abcdef";
    std::string hex;
    for (; size != 0; size /= 16) hex.insert(hex.begin(), Digits[size % 16]);
    return hex + LineEnd;
}

bool wantsClose(const ReceivedRequest& request) {
    return request.version == "HTTP/1.0" || strcasecmp(request.header("Connection").value_or("").c_str(), "close") == 0;
}

}  // namespace

Reply::Reply(int status, std::string reason) : status_(status), reason_(std::move(reason)) {
    if (reason_.empty()) reason_ = status == 200 ? "OK" : "Scripted";
}

Reply Reply::raw(std::string bytes) {
    Reply reply(200);
    reply.framing_ = Framing::Raw;
    return reply.body(std::move(bytes));
}

Reply Reply::redirect(const std::string& location, int status) {
    return Reply(status, "Moved").header("Location", location);
}

Reply& Reply::header(const std::string& name, const std::string& value) {
    return badHeader(name + ": " + value);
}

Reply& Reply::badHeader(std::string line) {
    header_lines_.push_back(std::move(line));
    return *this;
}

Reply& Reply::version(std::string protocol) {
    version_ = std::move(protocol);
    return *this;
}

Reply& Reply::interim(int status, const std::vector<std::string>& header_lines) {
    std::string block = "HTTP/1.1 " + std::to_string(status) + " Interim" + LineEnd;
    for (const std::string& line : header_lines) block += line + LineEnd;
    interims_.push_back(block + LineEnd);
    return *this;
}

Reply& Reply::body(std::string bytes) {
    append(body_, ReplyStep::Kind::SendBody, std::move(bytes));
    return *this;
}

Reply& Reply::pause() {
    append(body_, ReplyStep::Kind::Pause);
    return *this;
}

Reply& Reply::drip(const std::vector<std::string>& pieces) {
    for (const std::string& piece : pieces) {
        if (&piece != &pieces.front()) pause();
        body(piece);
    }
    return *this;
}

Reply& Reply::chunked() {
    framing_ = Framing::Chunked;
    return *this;
}

Reply& Reply::trailer(std::string line) {
    trailers_.push_back(std::move(line));
    return *this;
}

Reply& Reply::untilClose() {
    framing_ = Framing::UntilClose;
    end_ = End::Close;
    return *this;
}

Reply& Reply::closeAfterwards() {
    end_ = End::Close;
    return *this;
}

Reply& Reply::stallBeforeHeaders() {
    head_fault_ = HeadFault::Stall;
    return *this;
}

Reply& Reply::stallInsideHeaders() {
    head_fault_ = HeadFault::StallInside;
    return *this;
}

Reply& Reply::closeBeforeHeaders() {
    head_fault_ = HeadFault::Close;
    return *this;
}

Reply& Reply::closeInsideHeaders() {
    head_fault_ = HeadFault::CloseInside;
    return *this;
}

Reply& Reply::resetBeforeHeaders() {
    head_fault_ = HeadFault::Reset;
    return *this;
}

Reply& Reply::stallBeforeEnd(std::string rest) {
    return pause().body(std::move(rest));
}

Reply& Reply::closeInsideBody(std::size_t missing) {
    end_ = End::CloseShort;
    missing_ = missing;
    return *this;
}

Reply& Reply::resetInsideBody(std::size_t missing) {
    end_ = End::ResetShort;
    missing_ = missing;
    return *this;
}

Reply& Reply::answerBeforeBody() {
    upload_ = Upload::AnswerAtOnce;
    return *this;
}

Reply& Reply::stallBeforeRequestBody() {
    upload_ = Upload::Stall;
    return *this;
}

Reply& Reply::ignoreExpect() {
    upload_ = Upload::IgnoreExpect;
    return *this;
}

std::vector<ReplyStep> Reply::steps(const ReceivedRequest& request) const {
    std::vector<ReplyStep> steps;
    for (const std::string& block : interims_) append(steps, ReplyStep::Kind::Send, block);
    if (framing_ != Framing::Raw && !appendHead(steps, request)) return steps;
    if (!hasNoBody(request)) appendBody(steps);
    appendEnd(steps, request);
    return steps;
}

// The status line and the header lines, without the empty line after them.
std::string Reply::head(const ReceivedRequest& request) const {
    std::string text = version_ + ' ' + std::to_string(status_) + ' ' + reason_ + LineEnd;
    for (const std::string& line : header_lines_) text += line + LineEnd;
    const bool bodyless_status = hasNoBody(request) && request.method != "HEAD";
    if (framing_ == Framing::Length && !bodyless_status && !hasHeader("Content-Length")) {
        text += "Content-Length: " + std::to_string(announcedLength()) + LineEnd;
    }
    if (framing_ == Framing::Chunked && !hasHeader("Transfer-Encoding")) {
        text += std::string("Transfer-Encoding: chunked") + LineEnd;
    }
    return text;
}

bool Reply::hasHeader(const std::string& name) const {
    const ReceivedRequest like_ours{0, {}, {}, {}, header_lines_, {}};
    return like_ours.header(name).has_value();
}

bool Reply::hasNoBody(const ReceivedRequest& request) const {
    if (framing_ == Framing::Raw) return false;
    if (request.method == "CONNECT" && status_ / 100 == 2) return true;
    return request.method == "HEAD" || status_ / 100 == 1 || status_ == 204 || status_ == 304;
}

std::size_t Reply::announcedLength() const {
    std::size_t length = missing_;
    for (const ReplyStep& step : body_) length += step.bytes.size();
    return length;
}

// Returns whether anything comes after the head.
bool Reply::appendHead(std::vector<ReplyStep>& steps, const ReceivedRequest& request) const {
    const std::string text = head(request);
    switch (head_fault_) {
        case HeadFault::None:
            append(steps, ReplyStep::Kind::Send, text + LineEnd);
            return true;
        case HeadFault::Stall:
            append(steps, ReplyStep::Kind::Pause);
            append(steps, ReplyStep::Kind::Send, text + LineEnd);
            return true;
        case HeadFault::StallInside:
            append(steps, ReplyStep::Kind::Send, text);
            append(steps, ReplyStep::Kind::Pause);
            append(steps, ReplyStep::Kind::Send, LineEnd);
            return true;
        case HeadFault::Close:
            append(steps, ReplyStep::Kind::Close);
            return false;
        case HeadFault::CloseInside:
            append(steps, ReplyStep::Kind::Send, text);
            append(steps, ReplyStep::Kind::Close);
            return false;
        case HeadFault::Reset:
            append(steps, ReplyStep::Kind::Reset);
            return false;
    }
    return false;
}

void Reply::appendBody(std::vector<ReplyStep>& steps) const {
    for (const ReplyStep& step : body_) {
        const bool is_chunk = framing_ == Framing::Chunked && !step.bytes.empty();
        if (is_chunk) append(steps, ReplyStep::Kind::Send, chunkHead(step.bytes.size()));
        steps.push_back(step);
        if (is_chunk) append(steps, ReplyStep::Kind::Send, LineEnd);
    }
    const bool is_short = end_ == End::CloseShort || end_ == End::ResetShort;
    if (framing_ != Framing::Chunked || is_short) return;
    std::string last_chunk = std::string("0") + LineEnd;
    for (const std::string& line : trailers_) last_chunk += line + LineEnd;
    append(steps, ReplyStep::Kind::Send, last_chunk + LineEnd);
}

void Reply::appendEnd(std::vector<ReplyStep>& steps, const ReceivedRequest& request) const {
    switch (end_) {
        case End::Complete:
            if (wantsClose(request)) append(steps, ReplyStep::Kind::Close);
            return;
        case End::Close:
        case End::CloseShort:
            append(steps, ReplyStep::Kind::Close);
            return;
        case End::ResetShort:
            append(steps, ReplyStep::Kind::Reset);
            return;
    }
}

}  // namespace kel::http::test
