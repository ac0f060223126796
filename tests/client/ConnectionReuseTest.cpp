// SPDX-License-Identifier: MIT
// What follows for callers from libcurl's keeping of connections for later requests, and from trying several proxies.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <set>

#include "fixture/ClientTest.h"
#include "fixture/TestDevice.h"
#include "support/CountingProxy.h"
#include "support/NginxServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::SizeIs;

// The server takes every POST and then drops the connection without a word, as long as it is told to.
class ConnectionReuseTest : public ClientTest {
 protected:
    ConnectionReuseTest() {
        server.onRequest([this](const ReceivedRequest& request) { return answer(request); });
    }

    Reply answer(const ReceivedRequest& request) {
        if (request.method != "POST") return Reply(200).stallBeforeHeaders();
        return drops-- > 0 ? Reply(200).closeBeforeHeaders() : Reply(200);
    }

    RequestConfig post() const {
        RequestConfig config = get("/orders");
        config.method = Method::POST;
        config.body = "one kettle";
        return config;
    }

    // So many connections that are open and that nobody uses. Another one stays in use: libcurl keeps more for those
    // who have more transfers.
    void leaveIdleConnections(std::size_t count) {
        std::vector<Client::RequestId> ids;
        for (std::size_t i = 0; i < count; ++i) ids.push_back(start(get("/idle")));
        server.awaitRequests(count);
        start(get("/busy"));
        server.awaitRequests(count + 1);
        server.release(count);
        for (const Client::RequestId id : ids) recorder.await(id);
        ASSERT_EQ(server.openConnectionCount(), count + 1);
    }

    // The connections over which a POST has come, with its whole body.
    std::vector<std::size_t> arrivals() const { return arrivalsAt(server); }
    static std::vector<std::size_t> arrivalsAt(const ScriptedServer& place) {
        std::vector<std::size_t> connections;
        for (const ReceivedRequest& request : place.requests()) {
            if (request.method == "POST" && request.body == "one kettle") connections.push_back(request.connection);
        }
        return connections;
    }

    std::atomic<int> drops{1000};
};

// --- a request that arrives more than once ---

TEST_F(ConnectionReuseTest, APostArrivesSixTimesWhenReusedConnectionsDieBeforeTheAnswer) {
    leaveIdleConnections(6);
    const Recorder::Outcome outcome = fetch(post());
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->failure, ClientFailure::Other);
    const std::vector<std::size_t> connections = arrivals();
    EXPECT_THAT(connections, SizeIs(6));
    EXPECT_THAT(std::set<std::size_t>(connections.begin(), connections.end()), SizeIs(6));
}

TEST_F(ConnectionReuseTest, APostThatHasArrivedTwiceInVainIsAResponseWhenTheThirdConnectionAnswers) {
    drops = 2;
    leaveIdleConnections(2);
    const Recorder::Outcome outcome = fetch(post());
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->redirect_count, 1);
    EXPECT_THAT(arrivals(), SizeIs(3));
}

TEST_F(ConnectionReuseTest, APostWithAFreshStateArrivesOnce) {
    leaveIdleConnections(6);
    RequestConfig config = post();
    config.reset_state = true;
    EXPECT_TRUE(fetch(config).error);
    EXPECT_THAT(arrivals(), SizeIs(1));
}

// libcurl follows a redirect over any connection, the one at hand included.
TEST_F(ConnectionReuseTest, ARedirectedPostWithAFreshStateMayArriveMoreThanOnce) {
    leaveIdleConnections(2);
    server.enqueue(Reply::redirect("/orders/", 307));
    RequestConfig config = post();
    config.reset_state = true;
    EXPECT_TRUE(fetch(config).error);
    EXPECT_THAT(arrivals(), SizeIs(testing::Gt(2)));
}

// With an option of libcurl's a new connection costs neither the cookies nor the name look-up that `reset_state` does.
class FreshPostEngine : public Engine {
 public:
    FreshPostEngine() : Engine([](const std::function<void()>& completion) { completion(); }) {}
    ~FreshPostEngine() override { stop(); }

    void addTlsConfig(void* easy, std::shared_ptr<Request> request) override {
        if (request->config.method == Method::POST) curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L);
        Engine::addTlsConfig(easy, std::move(request));
    }
};

TEST_F(ConnectionReuseTest, APostOverAConnectionThatADerivedEngineWantsFreshArrivesOnce) {
    stopEngine();
    useEngine(std::make_unique<FreshPostEngine>());
    leaveIdleConnections(2);
    EXPECT_TRUE(fetch(post()).error);
    EXPECT_THAT(arrivals(), SizeIs(1));
    stopEngine();
}

TEST_F(ConnectionReuseTest, EachProxyOfAListBringsThePostAgain) {
    ScriptedServer target{Family::OtherIPv4};
    target.onRequest([this](const ReceivedRequest& request) { return answer(request); });
    engine().setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    const CountingProxy first;
    const CountingProxy second;
    const CountingProxy third;
    RequestConfig config = post();
    config.url = target.url();
    config.proxies = {first.url(), second.url(), third.url()};
    config.reset_state = true;  // which does not help
    EXPECT_TRUE(fetch(config).error);
    EXPECT_THAT(arrivalsAt(target), SizeIs(3));
    for (const CountingProxy* proxy : {&first, &second, &third}) EXPECT_EQ(proxy->connectionCount(), 1U);
}

// --- a connection that somebody else has made ---

TEST_F(ConnectionReuseTest, ConnectionOfACertificateServesNoRequestWithAnotherKey) {
    const TestHost host(withTestDevice);
    NginxServer::Options options;
    options.tls = true;
    options.directives = "ssl_verify_client optional_no_ca; location = /who { return 200 '$ssl_client_s_dn'; }";
    const NginxServer nginx(options);
    CertificateWish wish;
    wish.common_name = "test user";
    const CertificateFiles user = TestCertificates::shared().issue("reusing-user", wish);
    RequestConfig config;
    config.url = nginx.tlsUrl("/who");
    config.ca_file = TestCertificates::shared().caFile();
    config.own_cert = user.certificate_file;
    config.own_pkey = user.key_file;
    RequestConfig mismatched = config;
    mismatched.own_pkey = TestCertificates::shared().server().key_file;

    EXPECT_TRUE(fetch(mismatched).error);
    EXPECT_EQ(fetch(config).response->body, "CN=test user");
    EXPECT_TRUE(fetch(mismatched).error);
    EXPECT_EQ(fetch(config).response->body, "CN=test user");
    stopEngine();
}

}  // namespace
}  // namespace kel::http::test
