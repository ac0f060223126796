// SPDX-License-Identifier: MIT
#include "support/Reply.h"

#include <gtest/gtest.h>

namespace kel::http::test {
namespace {

ReceivedRequest requestWith(const std::string& method, const std::string& version = "HTTP/1.1") {
    ReceivedRequest request;
    request.method = method;
    request.target = "/";
    request.version = version;
    return request;
}

// The bytes of the steps, with the other steps in angle brackets.
std::string written(const Reply& reply, const ReceivedRequest& request = requestWith("GET")) {
    std::string text;
    for (const ReplyStep& step : reply.steps(request)) {
        switch (step.kind) {
            case ReplyStep::Kind::Send:
            case ReplyStep::Kind::SendBody:
                text += step.bytes;
                break;
            case ReplyStep::Kind::Pause:
                text += "<pause>";
                break;
            case ReplyStep::Kind::Close:
                text += "<close>";
                break;
            case ReplyStep::Kind::Reset:
                text += "<reset>";
                break;
        }
    }
    return text;
}

TEST(ReplyTest, PlainReplyHasAContentLength) {
    EXPECT_EQ(written(Reply(200).header("X-A", "b").body("hello")),
              "HTTP/1.1 200 OK\r\nX-A: b\r\nContent-Length: 5\r\n\r\nhello");
}

TEST(ReplyTest, UnknownStatusIsSentAsGiven) {
    EXPECT_EQ(written(Reply(600, "Whatever")), "HTTP/1.1 600 Whatever\r\nContent-Length: 0\r\n\r\n");
}

TEST(ReplyTest, OwnContentLengthIsKept) {
    EXPECT_EQ(written(Reply(200).header("content-length", "2").body("hello")),
              "HTTP/1.1 200 OK\r\ncontent-length: 2\r\n\r\nhello");
}

TEST(ReplyTest, ReplyToHeadKeepsTheLengthAndHasNoBody) {
    EXPECT_EQ(written(Reply(200).body("hello"), requestWith("HEAD")), "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n");
}

TEST(ReplyTest, StatusWithoutBodyHasNoLength) {
    EXPECT_EQ(written(Reply(204, "None").body("hello")), "HTTP/1.1 204 None\r\n\r\n");
    EXPECT_EQ(written(Reply(200), requestWith("CONNECT")), "HTTP/1.1 200 OK\r\n\r\n");
}

TEST(ReplyTest, RefusedConnectHasABody) {
    EXPECT_EQ(written(Reply(407, "No").body("x"), requestWith("CONNECT")),
              "HTTP/1.1 407 No\r\nContent-Length: 1\r\n\r\nx");
}

TEST(ReplyTest, ChunkedBodyHasAChunkForEachPieceAndTrailers) {
    EXPECT_EQ(written(Reply(200).chunked().body("hello").body("").body(std::string(26, 'x')).trailer("X-T: 1")),
              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n1a\r\n" + std::string(26, 'x') +
                  "\r\n0\r\nX-T: 1\r\n\r\n");
}

TEST(ReplyTest, InterimRepliesComeFirst) {
    EXPECT_EQ(written(Reply(200).interim(103, {"Link: a"}).interim(102)),
              "HTTP/1.1 103 Interim\r\nLink: a\r\n\r\nHTTP/1.1 102 Interim\r\n\r\n"
              "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
}

TEST(ReplyTest, StallsPauseWhereTheyAreNamedAfter) {
    EXPECT_EQ(written(Reply(200).stallBeforeHeaders()), "<pause>HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(written(Reply(200).stallInsideHeaders()), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n<pause>\r\n");
    EXPECT_EQ(written(Reply(200).body("first").stallBeforeEnd("last")),
              "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfirst<pause>last");
    EXPECT_EQ(written(Reply(200).drip({"a", "b", "c"})),
              "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\na<pause>b<pause>c");
}

TEST(ReplyTest, FaultsInTheHeadLeaveOutTheBody) {
    EXPECT_EQ(written(Reply(200).body("x").closeBeforeHeaders()), "<close>");
    EXPECT_EQ(written(Reply(200).body("x").closeInsideHeaders()), "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n<close>");
    EXPECT_EQ(written(Reply(200).body("x").resetBeforeHeaders()), "<reset>");
}

TEST(ReplyTest, FaultsInTheBodyAnnounceMoreThanTheySend) {
    EXPECT_EQ(written(Reply(200).body("x").closeInsideBody(4)), "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nx<close>");
    EXPECT_EQ(written(Reply(200).body("x").resetInsideBody(4)), "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nx<reset>");
    EXPECT_EQ(written(Reply(200).chunked().body("x").closeInsideBody()),
              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n<close>");
}

TEST(ReplyTest, ClosingRepliesCloseAtTheEnd) {
    EXPECT_EQ(written(Reply(200).body("x").untilClose()), "HTTP/1.1 200 OK\r\n\r\nx<close>");
    EXPECT_EQ(written(Reply(200).body("x").closeAfterwards()), "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx<close>");
}

TEST(ReplyTest, ConnectionIsClosedForOnesWhoAskForThat) {
    EXPECT_EQ(written(Reply(200), requestWith("GET", "HTTP/1.0")),
              "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n<close>");
    ReceivedRequest last = requestWith("GET");
    last.header_lines.push_back("connection: Close");
    EXPECT_EQ(written(Reply(200), last), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n<close>");
}

TEST(ReplyTest, RawBytesAreAllThereIs) {
    EXPECT_EQ(written(Reply::raw("HTTP/1.1 2").pause().body("00\r\n\r\n")), "HTTP/1.1 2<pause>00\r\n\r\n");
}

TEST(ReplyTest, BadHeaderStandsAsGiven) {
    EXPECT_EQ(written(Reply(200).badHeader("no colon at all")),
              "HTTP/1.1 200 OK\r\nno colon at all\r\nContent-Length: 0\r\n\r\n");
}

TEST(ReplyTest, RedirectNamesItsTarget) {
    EXPECT_EQ(written(Reply::redirect("/there")),
              "HTTP/1.1 302 Moved\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n");
}

}  // namespace
}  // namespace kel::http::test
