// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/OpenDescriptors.h"
#include "support/RawClient.h"
#include "support/ScriptedServer.h"
#include "support/SquidServer.h"
#include "support/TinyproxyServer.h"

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::string basic(const std::string& name, const std::string& password) {
    return "Basic " + basicCredentials({name, password});
}

class ProxyServersTest : public ::testing::Test {
 protected:
    ProxyServersTest() {
        origin.onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.body + " arrived"); });
    }

    // The head of the proxy's answer.
    static std::string askForTunnel(RawClient& client, const std::string& authority,
                                    const std::string& authorization = {}) {
        const std::string line =
            authorization.empty() ? std::string() : "Proxy-Authorization: " + authorization + "\r\n";
        client.send("CONNECT " + authority + " HTTP/1.1\r\nHost: " + authority + "\r\n" + line + "\r\n");
        return client.receiveUntil("\r\n\r\n");
    }

    // A whole exchange with the origin through `port`, or what the proxy says instead of it.
    std::string post(std::uint16_t port, const std::string& body, const std::string& authorization = {}) {
        RawClient client(port);
        const std::string head = askForTunnel(client, origin.authority(), authorization);
        if (head.find(" 200 ") == std::string::npos) return head;
        client.send("POST / HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\n\r\n" + body);
        return client.receiveAll();
    }

    ScriptedServer origin{Family::OtherIPv4};
};

const std::string Large(1000000, 'x');

// --- squid ---

TEST_F(ProxyServersTest, OpenSquidLetsEverybodyThrough) {
    const SquidServer squid;
    EXPECT_THAT(post(squid.port(), Large), EndsWith("x arrived"));
    EXPECT_THAT(squid.awaitAccessLog(1), ElementsAre(origin.authority() + " 200 -"));
}

TEST_F(ProxyServersTest, SquidKnowsItsUsersByBasicAuthentication) {
    const SquidServer squid(SquidServer::Access::Basic, {{"first", "1"}, {"the user@%", "p:a@s%s w%40rd"}});
    EXPECT_THAT(post(squid.port(), "x", basic("first", "1")), EndsWith("x arrived"));
    EXPECT_THAT(post(squid.port(), "y", basic("the user@%", "p:a@s%s w%40rd")), EndsWith("y arrived"));
    EXPECT_THAT(post(squid.port(), "z", basic("first", "2")), StartsWith("HTTP/1.1 407 "));
    EXPECT_THAT(post(squid.port(), "z"), HasSubstr("\r\nProxy-Authenticate: Basic realm=\"kel\"\r\n"));
}

TEST_F(ProxyServersTest, SquidAsksForDigestAuthentication) {
    const SquidServer squid(SquidServer::Access::Digest, {{"user", "password"}});
    EXPECT_THAT(post(squid.port(), "x"),
                AllOf(StartsWith("HTTP/1.1 407 "), HasSubstr("\r\nProxy-Authenticate: Digest realm=\"kel\", ")));
}

TEST_F(ProxyServersTest, StoppedSquidRefusesConnectionsAndLeavesNoDescriptor) {
    const OpenDescriptors descriptors;
    {
        SquidServer squid(SquidServer::Access::Basic, {{"user", "password"}});
        RawClient client(squid.port());
        EXPECT_THAT(askForTunnel(client, origin.authority(), basic("user", "password")), StartsWith("HTTP/1.1 200 "));
        squid.stop();
        EXPECT_EQ(client.receiveAll(), "");
        EXPECT_THROW(RawClient refused(squid.port()), std::system_error);
    }
    origin.awaitPeerClosed(1);
    EXPECT_THAT(descriptors.opened(), IsEmpty());
}

// --- tinyproxy ---

TEST_F(ProxyServersTest, OpenTinyproxyLetsEverybodyThrough) {
    const TinyproxyServer tinyproxy;
    EXPECT_THAT(post(tinyproxy.port(), Large), EndsWith("x arrived"));
}

TEST_F(ProxyServersTest, TinyproxyKnowsItsUser) {
    const TinyproxyServer tinyproxy(ProxyUser{"the.user", "pass-word_1"});
    EXPECT_THAT(post(tinyproxy.port(), "x", basic("the.user", "pass-word_1")), EndsWith("x arrived"));
    EXPECT_THAT(post(tinyproxy.port(), "x", basic("the.user", "other")), HasSubstr(" 401 "));
    EXPECT_THAT(post(tinyproxy.port(), "x"), HasSubstr(" 407 "));
}

TEST_F(ProxyServersTest, TinyproxyThatDoesNotStartTellsWhy) {
    try {
        const TinyproxyServer broken(ProxyUser{"user", "pass word"});
        FAIL() << "started nevertheless";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("Syntax error"));
    }
}

TEST_F(ProxyServersTest, StoppedTinyproxyRefusesConnections) {
    TinyproxyServer tinyproxy;
    RawClient client(tinyproxy.port());
    EXPECT_THAT(askForTunnel(client, origin.authority()), HasSubstr(" 200 "));
    tinyproxy.stop();
    EXPECT_EQ(client.receiveAll(), "");
    EXPECT_THROW(RawClient refused(tinyproxy.port()), std::system_error);
}

// --- ours ---

TEST_F(ProxyServersTest, TunnelIsCounted) {
    const CountingProxy proxy;
    EXPECT_THAT(post(proxy.port(), Large), EndsWith("x arrived"));
    proxy.awaitNoConnection();
    EXPECT_EQ(proxy.connectionCount(), 1U);
    ASSERT_EQ(proxy.requests().size(), 1U);
    EXPECT_EQ(proxy.requests()[0].target, origin.authority());
    EXPECT_THAT(proxy.authorizations(), IsEmpty());
}

TEST_F(ProxyServersTest, TargetThatRefusesIsABadGateway) {
    const CountingProxy proxy;
    RawClient client(proxy.port());
    EXPECT_THAT(askForTunnel(client, "127.0.0.1:" + std::to_string(ClosedPort().port())),
                StartsWith("HTTP/1.1 502 Bad Gateway\r\n"));
    RawClient other(proxy.port());
    EXPECT_THAT(askForTunnel(other, "a.name:80"), StartsWith("HTTP/1.1 502 "));
    RawClient get(proxy.port());
    get.get("http://a.name/");
    EXPECT_THAT(get.receiveAll(), StartsWith("HTTP/1.1 405 "));
}

TEST_F(ProxyServersTest, AuthorizationIsAskedForAndRecorded) {
    CountingProxy::Options options;
    options.authorization = basic("user", "password");
    const CountingProxy proxy(options);
    RawClient client(proxy.port());
    EXPECT_THAT(askForTunnel(client, origin.authority()),
                AllOf(StartsWith("HTTP/1.1 407 "), HasSubstr("Proxy-Authenticate: Basic")));
    EXPECT_THAT(askForTunnel(client, origin.authority(), "Basic wrong"), StartsWith("HTTP/1.1 407 "));
    EXPECT_THAT(askForTunnel(client, origin.authority(), options.authorization), StartsWith("HTTP/1.1 200 "));
    EXPECT_THAT(proxy.authorizations(), ElementsAre("Basic wrong", options.authorization));
    EXPECT_EQ(proxy.connectionCount(), 1U);
    EXPECT_EQ(proxy.openConnectionCount(), 1U);
}

TEST_F(ProxyServersTest, OrderOfUseIsNoted) {
    EventLog uses;
    CountingProxy::Options options;
    options.uses = &uses;
    options.name = "refusing";
    options.behaviour = CountingProxy::Behaviour::Refuse;
    options.status = 503;
    const CountingProxy refusing(options);
    options.name = "closing";
    options.behaviour = CountingProxy::Behaviour::Close;
    CountingProxy closing(options);
    RawClient closed(closing.port());
    EXPECT_EQ(closed.receiveAll(), "");
    EXPECT_THAT(post(refusing.port(), ""), StartsWith("HTTP/1.1 503 Refused\r\n"));
    closing.setBehaviour(CountingProxy::Behaviour::Tunnel);
    EXPECT_THAT(post(closing.port(), "now it"), EndsWith("now it arrived"));
    EXPECT_THAT(uses.events(), ElementsAre("closing", "refusing", "closing"));
}

TEST_F(ProxyServersTest, SilentOneReadsAndSaysNothing) {
    const OpenDescriptors descriptors;
    {
        const CountingProxy silent(CountingProxy::Behaviour::Silent);
        RawClient client(silent.port());
        client.send("CONNECT 127.0.0.2:80 HTTP/1.1\r\n\r\n");
        silent.awaitRequests(1);
        EXPECT_EQ(silent.openConnectionCount(), 1U);
        client.close();
        silent.awaitNoConnection();
    }
    EXPECT_THAT(descriptors.opened(), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
