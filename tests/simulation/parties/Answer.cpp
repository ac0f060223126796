// SPDX-License-Identifier: MIT
#include "parties/Answer.h"

#include <algorithm>

#include "parties/Bytes.h"

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

}  // namespace

std::string answerBytes(const ReplyScript& reply, std::size_t arrival, const std::string& location) {
    std::string text;
    for (std::int64_t number = 0; number < reply.interims; ++number)
        text += "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n";
    text += "HTTP/1.1 " + std::to_string(reply.status) + " Told\r\n";
    for (std::int64_t number = 0; number < reply.headers; ++number) {
        text += "H" + std::to_string(number) + ": h" + std::to_string(number) + "\r\n";
    }
    if (!location.empty()) text += "Location: " + location + "\r\n";
    if (isWithoutBody(reply.status)) return text + "\r\n";
    const std::string body = answerBody(reply.exchange, arrival, reply.body);
    switch (reply.framing) {
        case Framing::length:
            return text + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        case Framing::chunked:
            return text + "Transfer-Encoding: chunked\r\n\r\n" + chunks(body, reply.trailers);
        case Framing::close:
            break;
    }
    return text + "Connection: close\r\n\r\n" + body;
}

}  // namespace kel::http::simulation
