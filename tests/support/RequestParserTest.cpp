// SPDX-License-Identifier: MIT
#include "support/RequestParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kel::http::test {
namespace {

using Progress = RequestParser::Progress;
using ::testing::ElementsAre;

void give(RequestParser& parser, const std::string& bytes) {
    parser.append(bytes.data(), bytes.size());
}

TEST(RequestParserTest, RequestWithoutBodyEndsWithItsHeaderBlock) {
    RequestParser parser;
    give(parser, "GET /a%20b?c HTTP/1.1\r\nHost: x\r\nX-A:  b \r\n\r\n");
    EXPECT_EQ(parser.advance(), Progress::HeaderBlock);
    EXPECT_EQ(parser.advance(), Progress::Complete);
    const ReceivedRequest request = parser.take();
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/a%20b?c");
    EXPECT_EQ(request.version, "HTTP/1.1");
    EXPECT_THAT(request.header_lines, ElementsAre("Host: x", "X-A:  b "));
    EXPECT_EQ(request.header("x-a"), "b");
    EXPECT_EQ(request.header("x"), std::nullopt);
    EXPECT_EQ(parser.advance(), Progress::NeedsMore);
}

TEST(RequestParserTest, RepeatedHeadersAreAllThere) {
    RequestParser parser;
    give(parser, "GET / HTTP/1.1\r\nA: 1\r\nB: 2\r\na:\r\n\r\n");
    EXPECT_EQ(parser.advance(), Progress::HeaderBlock);
    EXPECT_THAT(parser.request().headers("A"), ElementsAre("1", ""));
}

TEST(RequestParserTest, BodyComesByteByByte) {
    RequestParser parser;
    for (const char byte : std::string("PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhell")) {
        parser.append(&byte, 1);
        EXPECT_NE(parser.advance(), Progress::Complete);
    }
    give(parser, "o");
    EXPECT_EQ(parser.advance(), Progress::Complete);
    EXPECT_EQ(parser.take().body, "hello");
}

TEST(RequestParserTest, ChunksAreJoined) {
    RequestParser parser;
    give(parser, "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n1a\r\n" + std::string(26, 'x') +
                     "\r\n0\r\nX-T: 1\r\n\r\n");
    EXPECT_EQ(parser.advance(), Progress::HeaderBlock);
    EXPECT_EQ(parser.advance(), Progress::Complete);
    EXPECT_EQ(parser.take().body, "hello" + std::string(26, 'x'));
}

TEST(RequestParserTest, NextRequestWaitsBehindTheFirst) {
    RequestParser parser;
    give(parser, "GET /1 HTTP/1.1\r\n\r\nGET /2 HTTP/1.1\r\n\r\n");
    EXPECT_EQ(parser.advance(), Progress::HeaderBlock);
    EXPECT_EQ(parser.advance(), Progress::Complete);
    EXPECT_EQ(parser.take().target, "/1");
    EXPECT_EQ(parser.advance(), Progress::HeaderBlock);
    EXPECT_EQ(parser.advance(), Progress::Complete);
    EXPECT_EQ(parser.take().target, "/2");
}

TEST(RequestParserTest, OtherProtocolsAreBroken) {
    for (const char* bytes : {"hello\r\n", " / HTTP/1.1\r\n", "GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n"}) {
        RequestParser parser;
        give(parser, bytes);
        EXPECT_EQ(parser.advance(), Progress::Broken) << bytes;
    }
}

}  // namespace
}  // namespace kel::http::test
