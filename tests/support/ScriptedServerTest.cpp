// SPDX-License-Identifier: MIT
#include "support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <system_error>

#include "support/OpenDescriptors.h"
#include "support/RawClient.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string EndOfHead = "\r\n\r\n";

class ScriptedServerTest : public ::testing::Test {
 protected:
    ~ScriptedServerTest() override {
        client.reset();
        server.reset();
        EXPECT_THAT(descriptors.opened(), IsEmpty());
    }

    OpenDescriptors descriptors;
    std::unique_ptr<ScriptedServer> server = std::make_unique<ScriptedServer>();
    std::unique_ptr<RawClient> client = std::make_unique<RawClient>(server->port());
};

TEST_F(ScriptedServerTest, EnqueuedRepliesAnswerInOrderOverOneConnection) {
    server->enqueue(Reply(200).body("first"));
    server->enqueue(Reply(404).body("second"));
    client->get("/1");
    EXPECT_THAT(client->receiveUntil("first"), StartsWith("HTTP/1.1 200 OK\r\n"));
    client->get("/2", "X-A: b\r\n");
    EXPECT_THAT(client->receiveUntil("second"), StartsWith("HTTP/1.1 404 "));
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].target, "/1");
    EXPECT_EQ(requests[1].target, "/2");
    EXPECT_EQ(requests[1].connection, 1U);
    EXPECT_THAT(requests[1].header_lines, ElementsAre("Host: localhost", "X-A: b"));
    EXPECT_EQ(server->connectionCount(), 1U);
}

TEST_F(ScriptedServerTest, RequestWaitsForItsReply) {
    client->get("/");
    server->awaitRequests(1);
    server->enqueue(Reply(200).body("late"));
    EXPECT_THAT(client->receiveUntil("late"), StartsWith("HTTP/1.1 200"));
}

TEST_F(ScriptedServerTest, HandlerEchoesWhatIsNotEnqueuedFor) {
    server->onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.body + "!"); });
    client->send("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n");
    EXPECT_THAT(client->receiveUntil("abc!"), StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(server->bodyBytesReceived(), 3U);
}

TEST_F(ScriptedServerTest, PipelinedRequestsAreAnsweredOneByOne) {
    server->enqueue(Reply(200).body("one").stallBeforeEnd("1"));
    server->enqueue(Reply(200).body("two"));
    client->get("/1");
    client->get("/2");
    client->receiveUntil("one");
    server->release();
    EXPECT_THAT(client->receiveUntil("two"), StartsWith("1HTTP/1.1 200"));
}

TEST_F(ScriptedServerTest, StalledBodyEndsAfterRelease) {
    server->enqueue(Reply(200).body("first half").stallBeforeEnd("second half"));
    client->get("/");
    server->awaitBodyBytesSent(10);
    EXPECT_THAT(client->receiveUntil("first half"), ::testing::HasSubstr("Content-Length: 21\r\n"));
    EXPECT_EQ(server->bodyBytesSent(), 10U);
    server->release();
    EXPECT_EQ(client->receive(11), "second half");
}

TEST_F(ScriptedServerTest, EachReleaseLetsTheNextPieceOut) {
    server->enqueue(Reply(200).chunked().drip({"a", "b", "c"}));
    client->get("/");
    EXPECT_THAT(client->receiveUntil("1\r\na\r\n"), StartsWith("HTTP/1.1 200"));
    server->release();
    EXPECT_EQ(client->receive(6), "1\r\nb\r\n");
    EXPECT_EQ(server->bodyBytesSent(), 2U);
    server->release();
    EXPECT_EQ(client->receive(11), "1\r\nc\r\n0\r\n\r\n");
}

TEST_F(ScriptedServerTest, EarliestStallEndsFirst) {
    server->enqueue(Reply(200).stallBeforeHeaders().body("one"));
    server->enqueue(Reply(200).stallBeforeHeaders().body("two"));
    client->get("/1");
    server->awaitRequests(1);
    RawClient second(server->port());
    second.get("/2");
    server->awaitRequests(2);
    server->release();
    EXPECT_THAT(client->receiveUntil("one"), StartsWith("HTTP/1.1 200"));
    server->release();
    EXPECT_THAT(second.receiveUntil("two"), StartsWith("HTTP/1.1 200"));
}

TEST_F(ScriptedServerTest, PeerThatLeavesDuringAStallIsNoticed) {
    server->enqueue(Reply(200).stallBeforeHeaders());
    client->get("/");
    server->awaitRequests(1);
    EXPECT_EQ(server->openConnectionCount(), 1U);
    client->close();
    server->awaitPeerClosed(1);
    EXPECT_EQ(server->openConnectionCount(), 0U);
}

TEST_F(ScriptedServerTest, EndOfServerBreaksAStall) {
    server->enqueue(Reply(200).body("half").stallBeforeEnd());
    client->get("/");
    client->receiveUntil("half");
    server.reset();
    EXPECT_EQ(client->receiveAll(), "");
}

TEST_F(ScriptedServerTest, ClosingFaultsCloseWithoutAReset) {
    server->enqueue(Reply(200).closeBeforeHeaders());
    client->get("/");
    EXPECT_EQ(client->receiveAll(), "");

    server->enqueue(Reply(200).closeInsideHeaders());
    RawClient inside_headers(server->port());
    inside_headers.get("/");
    EXPECT_EQ(inside_headers.receiveAll(), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n");

    server->enqueue(Reply(200).body("x").closeInsideBody());
    RawClient inside_body(server->port());
    inside_body.get("/");
    EXPECT_EQ(inside_body.receiveAll(), "HTTP/1.1 200 OK\r\nContent-Length: 101\r\n\r\nx");
}

TEST_F(ScriptedServerTest, ResetReachesThePeer) {
    server->enqueue(Reply(200).resetBeforeHeaders());
    client->get("/");
    EXPECT_THROW(client->receiveAll(), std::system_error);
    server->awaitPeerClosed(1);
}

TEST_F(ScriptedServerTest, IdleConnectionsAreClosedOnDemand) {
    server->enqueue(Reply(200).body("x"));
    client->get("/");
    client->receiveUntil("x");
    server->closeConnections();
    EXPECT_EQ(client->receiveAll(), "");
    client->close();
    server->awaitPeerClosed(1);
}

TEST_F(ScriptedServerTest, ExpectationIsAnsweredBeforeTheBody) {
    server->enqueue(Reply(201).body("done"));
    client->send("PUT / HTTP/1.1\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_EQ(client->receiveUntil(EndOfHead), "HTTP/1.1 100 Continue\r\n\r\n");
    client->send("body");
    EXPECT_THAT(client->receiveUntil("done"), StartsWith("HTTP/1.1 201"));
    EXPECT_EQ(server->requests().at(0).body, "body");
}

TEST_F(ScriptedServerTest, ExpectationIsIgnoredOnDemand) {
    server->enqueue(Reply(201).ignoreExpect());
    client->send("PUT / HTTP/1.1\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
    server->awaitHeaderBlocks(1);
    client->send("body");
    EXPECT_THAT(client->receiveUntil(EndOfHead), StartsWith("HTTP/1.1 201"));
}

TEST_F(ScriptedServerTest, RefusedExpectationNeedsNoBody) {
    server->enqueue(Reply(417).answerBeforeBody());
    server->enqueue(Reply(200));
    client->send("PUT /1 HTTP/1.1\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_THAT(client->receiveUntil(EndOfHead), StartsWith("HTTP/1.1 417"));
    client->get("/2");
    EXPECT_THAT(client->receiveUntil(EndOfHead), StartsWith("HTTP/1.1 200"));
}

TEST_F(ScriptedServerTest, EarlyReplyComesBeforeTheBodyAndTheBodyIsRead) {
    server->enqueue(Reply(413).answerBeforeBody());
    client->send("PUT /1 HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
    EXPECT_THAT(client->receiveUntil(EndOfHead), StartsWith("HTTP/1.1 413"));
    client->send("body");
    server->awaitRequests(1);
    EXPECT_EQ(server->requests().at(0).body, "body");
}

TEST_F(ScriptedServerTest, StalledUploadGoesOnAfterRelease) {
    const std::string body(16U << 20U, 'x');
    server->enqueue(Reply(200).stallBeforeRequestBody());
    client->send("PUT /1 HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + EndOfHead);
    server->awaitHeaderBlocks(1);
    EXPECT_EQ(server->bodyBytesReceived(), 0U);
    server->release();
    client->send(body);
    server->awaitBodyBytesReceived(body.size());
    EXPECT_THAT(client->receiveUntil(EndOfHead), StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(server->requests().at(0).body, body);
}

TEST_F(ScriptedServerTest, PeerThatLeavesDuringAStalledUploadIsNoticed) {
    server->enqueue(Reply(200).stallBeforeRequestBody());
    client->send("PUT /1 HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
    server->awaitHeaderBlocks(1);
    client->send("bo");
    client->close();
    server->awaitPeerClosed(1);
    EXPECT_THAT(server->requests(), IsEmpty());
}

TEST_F(ScriptedServerTest, LargeBodyReachesASlowReader) {
    const std::string body(16U << 20U, 'x');
    server->enqueue(Reply(200).body(body));
    client->get("/");
    client->receiveUntil(EndOfHead);
    EXPECT_EQ(client->receive(body.size()), body);
    server->awaitBodyBytesSent(body.size());
}

TEST_F(ScriptedServerTest, OtherProtocolIsCutOff) {
    client->send("\x16\x03\x01\r\n");
    EXPECT_EQ(client->receiveAll(), "");
}

TEST_F(ScriptedServerTest, ManyConnectionsAreServedAtOnce) {
    server->onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.target); });
    std::vector<RawClient> clients;
    for (int i = 0; i < 100; ++i) clients.emplace_back(server->port()).get("/" + std::to_string(i) + ";");
    for (int i = 0; i < 100; ++i) {
        const std::string target = "/" + std::to_string(i) + ";";
        clients[static_cast<std::size_t>(i)].receiveUntil(EndOfHead);
        EXPECT_EQ(clients[static_cast<std::size_t>(i)].receive(target.size()), target);
    }
    server->awaitConnections(101);
}

TEST_F(ScriptedServerTest, ServesIPv6) {
    ScriptedServer other(Family::IPv6);
    other.enqueue(Reply(200).untilClose().body("six"));
    RawClient six(other.port(), Family::IPv6);
    six.get("/");
    EXPECT_EQ(six.receiveAll(), "HTTP/1.1 200 OK\r\n\r\nsix");
    EXPECT_EQ(other.url("/a"), "http://[::1]:" + std::to_string(other.port()) + "/a");
}

}  // namespace
}  // namespace kel::http::test
