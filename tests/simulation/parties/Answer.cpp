// SPDX-License-Identifier: MIT
#include "parties/Answer.h"

#include <algorithm>
#include <cstdlib>

#include "parties/Bytes.h"
#include "parties/Credentials.h"

namespace kel::http::simulation {
namespace {

std::string chunks(const std::string& body, std::int64_t trailers) {
    constexpr std::size_t longest = 1000;
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t begin = 0; begin < body.size(); begin += longest) {
        const std::size_t size = std::min(longest, body.size() - begin);
        std::string length;
        for (std::size_t rest = size; rest > 0; rest /= 16) length.insert(length.begin(), digits[rest % 16]);
        text.append(length).append("\r\n").append(body, begin, size).append("\r\n");
    }
    text += "0\r\n";
    for (std::int64_t number = 0; number < trailers; ++number) text += "T" + std::to_string(number) + ": t\r\n";
    return text + "\r\n";
}

// The first chunk is as it should be.
std::string spoiltChunks(const std::string& body) {
    const std::string good = body.empty() ? std::string() : chunks(body, 0);
    const auto first = body.empty() ? 0 : good.find("\r\n", good.find("\r\n") + 2) + 2;
    return good.substr(0, first) + "zz\r\nnone of this counts\r\n0\r\n\r\n";
}

std::string announced(const ReplyScript& reply, std::size_t size) {
    const auto line = [](std::size_t length) { return "Content-Length: " + std::to_string(length) + "\r\n"; };
    switch (reply.lie) {
        case Lie::longer:
            return line(size + 10);
        case Lie::shorter:
            return line(size / 2);
        case Lie::two:
            return line(size) + line(size + 5);
        default:
            return line(size);
    }
}

std::string manyLines(const ReplyScript& reply) {
    std::string text;
    for (int number = 0; reply.lie == Lie::headers && number < 300; ++number) {
        text.append("L: ").append(1019, 'l').append("\r\n");
    }
    for (int number = 0; reply.lie == Lie::lines && number < 2100; ++number) text += "L: l\r\n";
    for (std::int64_t number = 0; number < reply.headers; ++number) {
        text += "H" + std::to_string(number) + ": h" + std::to_string(number) + "\r\n";
    }
    for (std::int64_t number = 0; number < reply.cookies; ++number) {
        text += "Set-Cookie: c" + std::to_string(number) + "=" + std::to_string(reply.exchange) + "; Max-Age=10000\r\n";
    }
    return text;
}

std::string interim(const ReplyScript& reply) {
    const std::string line = "HTTP/1.1 " + std::to_string(reply.interimStatus) + " Soon\r\n";
    return reply.interimStatus == 103 ? line + "Link: </a>\r\n\r\n" : line + "\r\n";
}

Framing framingOf(const ReplyScript& reply) {
    if (reply.lie == Lie::chunk) return Framing::chunked;
    const bool is_length = reply.lie == Lie::longer || reply.lie == Lie::shorter || reply.lie == Lie::two;
    return is_length ? Framing::length : reply.framing;
}

// `lines`: those that this answer alone has.
std::string compose(const ReplyScript& reply, const std::string& lines, const std::string& body) {
    if (reply.lie == Lie::garbage) return "220 this is no web server\r\n\r\n" + body;
    std::string text;
    for (std::int64_t number = 0; number < reply.interims; ++number) text += interim(reply);
    text += "HTTP/1.1 " + std::to_string(reply.status) + " Told\r\n" + manyLines(reply) + lines;
    if (isWithoutBody(reply.status)) return text + "\r\n";
    switch (framingOf(reply)) {
        case Framing::length:
            return text + announced(reply, body.size()) + "\r\n" + body;
        case Framing::chunked:
            text += "Transfer-Encoding: chunked\r\n\r\n";
            return text + (reply.lie == Lie::chunk ? spoiltChunks(body) : chunks(body, reply.trailers));
        case Framing::close:
            break;
    }
    return text + "Connection: close\r\n\r\n" + body;
}

std::string locationLine(const std::string& location) {
    return location.empty() ? location : "Location: " + location + "\r\n";
}

// `from`: the first byte that is asked for.
std::string part(ReplyScript reply, const std::string& body, std::size_t from) {
    const std::string size = std::to_string(body.size());
    if (reply.range == Range::refused || from >= body.size()) {
        reply.status = 416;
        return compose(reply, "Content-Range: bytes */" + size + "\r\n", std::string(refused_part));
    }
    reply.status = 206;
    if (reply.range == Range::wrong) from = from / 2;
    const std::string last = std::to_string(body.size() - 1);
    return compose(reply, "Content-Range: bytes " + std::to_string(from) + "-" + last + "/" + size + "\r\n",
                   body.substr(from));
}

}  // namespace

std::string answerBytes(const ReplyScript& reply, std::size_t arrival, const std::string& location) {
    return compose(reply, locationLine(location), answerBody(reply.exchange, arrival, reply.body));
}

std::string challengeBytes(const ReplyScript& reply, std::size_t arrival) {
    ReplyScript refusal = reply;
    refusal.status = 401;
    return compose(refusal, challengeLines(reply.challenge), answerBody(reply.exchange, arrival, reply.body));
}

std::string answerTo(const std::string& head, const ReplyScript& reply, std::size_t arrival,
                     const std::string& location) {
    if (reply.challenge != Challenge::none && !satisfies(head, reply.challenge)) return challengeBytes(reply, arrival);
    const std::string body = answerBody(reply.exchange, arrival, reply.body);
    const std::string range = headerIn(head, "Range");
    if (reply.range != Range::ignored && reply.status == 200 && range.compare(0, 6, "bytes=") == 0) {
        return part(reply, body, std::strtoul(range.c_str() + 6, nullptr, 10));
    }
    return answerBytes(reply, arrival, location);
}

}  // namespace kel::http::simulation
