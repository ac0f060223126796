// SPDX-License-Identifier: MIT
#include <algorithm>
#include <set>

#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "fixture/Verifiers.h"
#include "support/NginxServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::Not;
using ::testing::SizeIs;

const std::string Untrusted = "failure 2: " + std::string(curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));

// Every reply tells the number of its connection; /session tells whether that began with a session resumed ("r") or not
// ("."), and its TLS version. /to-session redirects there.
NginxServer::Options telling(const std::string& directives = {}, bool http2 = true) {
    NginxServer::Options options;
    options.tls = true;
    options.http2 = http2;
    options.directives =
        "add_header X-Connection $connection always; ssl_session_cache shared:sessions:1m;"
        "location = /session { return 200 '$ssl_session_reused $ssl_protocol'; }"
        "location = /to-session { return 302 /session; }" +
        directives;
    return options;
}

// libcurl keeps connections and TLS sessions for later requests to the same host, and knows nothing of what verifiers
// have said about them. The server's authority is known to those alone that name it: everybody else refuses it, unless
// they come over a connection, or resume a session, that somebody less strict has made.
class TlsReuseTest : public EngineTest {
 protected:
    explicit TlsReuseTest(bool http2 = true) : nginx(telling({}, http2)) {
        nginx.writeFile("large", std::string(1000000, 'x'));
        startEngine();
    }
    // Ends requests that are still stalled while their verifiers are there.
    ~TlsReuseTest() override { stopEngine(); }

    RequestConfig strict(const std::string& path = "/status/200") const {
        RequestConfig config;
        config.url = nginx.tlsUrl(path);
        return config;
    }
    RequestConfig trusting(const std::string& path = "/status/200") const {
        RequestConfig config = strict(path);
        config.ca_file = TestCertificates::shared().caFile();
        return config;
    }
    static RequestConfig with(RequestConfig::Verifier verifier, RequestConfig config) {
        config.verifier = std::move(verifier);
        return config;
    }
    static RequestConfig withPartialChain(RequestConfig config) {
        config.tls_partial_chain = true;
        return config;
    }
    // Does not end by itself.
    static constexpr const char* Stalled = "/limit/large?rate=1k";

    RecordingRequestPtr fetch(const RequestConfig& config) {
        const RecordingRequestPtr made = run(config);
        made->outcome.awaitCount(1);
        return made;
    }
    std::string outcomeOf(const RequestConfig& config) { return fetch(config)->outcome.events().at(0); }

    static RecordingRequestPtr stall(const RequestConfig& config) {
        const RecordingRequestPtr made = run(config);
        made->hooks.await("header ");
        return made;
    }

    // The connections that the replies to this request came over, redirects included.
    static std::vector<std::string> connectionsOf(const RecordingRequestPtr& request) {
        std::vector<std::string> numbers;
        for (std::string line : request->hooks.events()) {
            std::transform(line.begin(), line.end(), line.begin(), [](unsigned char c) { return std::tolower(c); });
            const std::string name = "header x-connection: ";
            if (line.compare(0, name.size(), name) == 0) numbers.push_back(line.substr(name.size()));
        }
        return numbers;
    }
    static std::string connectionOf(const RecordingRequestPtr& request) { return connectionsOf(request).at(0); }

    const TestHost host{withTestDevice};
    const Verifiers verifiers;
    NginxServer nginx;
};

// With HTTP/1.1 and with HTTP/2, whose connections libcurl treats differently.
class TlsPoolTest : public TlsReuseTest, public testing::WithParamInterface<bool> {
 protected:
    TlsPoolTest() : TlsReuseTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Protocols, TlsPoolTest, testing::Bool(),
                         [](const auto& http2) { return http2.param ? "Http2" : "Http1"; });

// --- everybody else keeps the pool ---

TEST_P(TlsPoolTest, OrdinaryRequestsShareAConnection) {
    const std::string connection = connectionOf(fetch(trusting()));
    EXPECT_EQ(connectionOf(fetch(trusting("/redirect/2"))), connection);
    EXPECT_EQ(connectionOf(fetch(trusting())), connection);
}

TEST_F(TlsReuseTest, OrdinaryRequestsShareAConnectionInUse) {
    const auto running = stall(trusting(Stalled));
    EXPECT_THAT(running->hooks.events(), Contains("header HTTP/2 200 "));
    EXPECT_EQ(connectionOf(fetch(trusting())), connectionOf(running));
}

TEST_F(TlsReuseTest, StrictRequestLeavesAloneWhatWasNotVerified) {
    RequestConfig config = strict();
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_EQ(outcomeOf(strict()), Untrusted);
}

// --- strict requests after and beside lax ones ---

TEST_P(TlsPoolTest, StrictRequestAfterALaxVerifierRefusesTheServer) {
    EXPECT_EQ(outcomeOf(with(Verifiers::lax, strict())), "end");
    EXPECT_EQ(outcomeOf(strict()), Untrusted);
}

TEST_F(TlsReuseTest, StrictRequestBesideALaxVerifierRefusesTheServer) {
    const auto running = stall(with(Verifiers::lax, strict(Stalled)));
    EXPECT_EQ(outcomeOf(strict()), Untrusted);
    EXPECT_EQ(running->outcome.count(), 0U);
}

TEST_P(TlsPoolTest, RedirectedRequestRefusesTheServerThatALaxVerifierAccepts) {
    const NginxServer other(telling("location = /away { return 302 " + nginx.tlsUrl("/status/200") + "; }"));
    RequestConfig config;
    config.url = other.url("/away");
    EXPECT_EQ(outcomeOf(with(Verifiers::lax, strict())), "end");
    EXPECT_EQ(outcomeOf(config), Untrusted);
    const auto running = stall(with(Verifiers::lax, strict(Stalled)));
    EXPECT_EQ(outcomeOf(config), Untrusted);
    EXPECT_EQ(running->outcome.count(), 0U);
}

// --- verifiers after and beside strict requests ---

TEST_P(TlsPoolTest, VerifierIsAskedAfterAStrictRequest) {
    const std::string pooled = connectionOf(fetch(trusting()));
    const auto verified = fetch(with(Verifiers::neutral, trusting()));
    EXPECT_EQ(verified->outcome.events().at(0), "end");
    EXPECT_EQ(verifiers.handshakes(), 1U);
    EXPECT_NE(connectionOf(verified), pooled);
    EXPECT_EQ(outcomeOf(with(Verifiers::refusing, trusting())), Untrusted);
    EXPECT_EQ(connectionOf(fetch(trusting())), pooled);
}

TEST_F(TlsReuseTest, VerifierIsAskedBesideAStrictRequest) {
    const auto running = stall(trusting(Stalled));
    const auto verified = fetch(with(Verifiers::neutral, trusting()));
    EXPECT_EQ(verified->outcome.events().at(0), "end");
    EXPECT_EQ(verifiers.handshakes(), 1U);
    EXPECT_NE(connectionOf(verified), connectionOf(running));
    EXPECT_EQ(outcomeOf(with(Verifiers::refusing, trusting())), Untrusted);
}

TEST_P(TlsPoolTest, VerifierIsAskedAtEveryHopOfARedirect) {
    const std::string pooled = connectionOf(fetch(trusting()));
    const auto verified = fetch(with(Verifiers::neutral, trusting("/redirect/3")));
    EXPECT_EQ(verified->outcome.events().at(0), "end");
    const std::vector<std::string> connections = connectionsOf(verified);
    EXPECT_THAT(connections, SizeIs(4));
    EXPECT_THAT(connections, Not(Contains(pooled)));
    EXPECT_THAT(std::set<std::string>(connections.begin(), connections.end()), SizeIs(4));
    EXPECT_EQ(verifiers.handshakes(), 4U);
    EXPECT_EQ(connectionOf(fetch(trusting())), pooled);
}

TEST_F(TlsReuseTest, VerifierIsAskedAtEveryHopWhileConnectionsAreInUse) {
    const auto running = stall(trusting(Stalled));
    const auto verified = fetch(with(Verifiers::neutral, trusting("/redirect/3")));
    EXPECT_EQ(verified->outcome.events().at(0), "end");
    EXPECT_THAT(connectionsOf(verified), Not(Contains(connectionOf(running))));
    EXPECT_EQ(verifiers.handshakes(), 4U);
}

TEST_P(TlsPoolTest, RefusingVerifierIsAskedWhereARedirectLeads) {
    EXPECT_EQ(outcomeOf(trusting()), "end");
    const NginxServer other(telling("location = /away { return 302 " + nginx.tlsUrl("/status/200") + "; }"));
    RequestConfig config = with(Verifiers::refusing, trusting());
    config.url = other.url("/away");
    EXPECT_EQ(outcomeOf(config), Untrusted);
}

TEST_P(TlsPoolTest, VerifierIsAskedAgainAfterARequestForCredentials) {
    for (const auto method : {AuthMethod::ANY, AuthMethod::BASIC}) {
        const std::string pooled = connectionOf(fetch(trusting()));
        const std::size_t before = verifiers.handshakes();
        RequestConfig config = with(Verifiers::neutral, trusting("/auth/secret"));
        config.user = NginxServer::AuthUser;
        config.password = NginxServer::AuthPassword;
        config.auth_method = method;
        const auto verified = fetch(config);
        EXPECT_EQ(verified->outcome.events().at(0), "end");
        const std::vector<std::string> connections = connectionsOf(verified);
        EXPECT_THAT(connections, SizeIs(2));
        EXPECT_THAT(connections, Not(Contains(pooled)));
        EXPECT_EQ(verifiers.handshakes() - before,
                  std::set<std::string>(connections.begin(), connections.end()).size());
    }
}

// --- verifiers among themselves ---

TEST_F(TlsReuseTest, TwoVerifiersDoNotShareTheirVerdicts) {
    EXPECT_EQ(outcomeOf(with(Verifiers::lax, strict())), "end");
    EXPECT_EQ(outcomeOf(with(Verifiers::refusing, strict())), Untrusted);
    EXPECT_EQ(outcomeOf(with(Verifiers::neutral, strict())), Untrusted);
    const auto running = stall(with(Verifiers::lax, strict(Stalled)));
    EXPECT_EQ(outcomeOf(with(Verifiers::refusing, strict())), Untrusted);
    EXPECT_EQ(outcomeOf(with(Verifiers::neutral, strict("/redirect/2"))), Untrusted);
}

TEST_F(TlsReuseTest, OneVerifierIsAskedEachTime) {
    const auto first = fetch(with(Verifiers::lax, strict()));
    const auto second = fetch(with(Verifiers::lax, strict()));
    const auto running = stall(with(Verifiers::lax, strict(Stalled)));
    const auto third = fetch(with(Verifiers::lax, strict()));
    const std::set<std::string> connections{connectionOf(first), connectionOf(second), connectionOf(running),
                                            connectionOf(third)};
    EXPECT_THAT(connections, SizeIs(4));
    EXPECT_EQ(verifiers.handshakes(), 4U);
}

TEST_F(TlsReuseTest, VerifierBesideItselfAcrossRedirectsIsAskedEachTime) {
    const auto running = stall(with(Verifiers::lax, strict(Stalled)));
    const auto redirected = fetch(with(Verifiers::lax, strict("/redirect/2")));
    EXPECT_EQ(redirected->outcome.events().at(0), "end");
    EXPECT_THAT(connectionsOf(redirected), Not(Contains(connectionOf(running))));
    EXPECT_EQ(verifiers.handshakes(), 4U);
}

// --- partial chains ---

TEST_P(TlsPoolTest, PartialChainHasAConnectionOfItsOwn) {
    const std::string pooled = connectionOf(fetch(trusting()));
    const auto partial = fetch(withPartialChain(trusting("/redirect/2")));
    EXPECT_EQ(partial->outcome.events().at(0), "end");
    std::vector<std::string> connections = connectionsOf(partial);
    EXPECT_THAT(connections, Not(Contains(pooled)));
    const auto again = fetch(withPartialChain(trusting()));
    EXPECT_THAT(connections, Not(Contains(connectionOf(again))));
    EXPECT_EQ(connectionOf(fetch(trusting())), pooled);
    const auto running = stall(withPartialChain(trusting(Stalled)));
    EXPECT_EQ(connectionOf(fetch(trusting())), pooled);
    EXPECT_EQ(running->outcome.count(), 0U);
}

// --- sessions ---

// A server that ends its connections after one reply, so that nothing but sessions can be kept.
class TlsSessionTest : public TlsReuseTest, public testing::WithParamInterface<std::string> {
 protected:
    static NginxServer::Options options() {
        // libcurl does not end connections of HTTP/2 in a way that leaves a session behind.
        return telling("keepalive_timeout 0; ssl_protocols " + GetParam() + ";", false);
    }

    RequestConfig direct(RequestConfig config) const {
        config.url = limited.tlsUrl("/session");
        return config;
    }
    RequestConfig redirected(RequestConfig config) const {
        config.url = limited.tlsUrl("/to-session");
        return config;
    }
    std::string sessionOf(const RequestConfig& config) { return fetch(config)->body(); }
    static std::string fresh() { return ". " + GetParam(); }
    static std::string resumed() { return "r " + GetParam(); }

    const NginxServer limited{options()};
};

INSTANTIATE_TEST_SUITE_P(Versions, TlsSessionTest, testing::Values("TLSv1.2", "TLSv1.3"),
                         [](const auto& version) { return version.param == "TLSv1.2" ? "Tls12" : "Tls13"; });

TEST_P(TlsSessionTest, OrdinaryRequestResumesItsSession) {
    EXPECT_EQ(sessionOf(redirected(trusting())), resumed());
}

TEST_P(TlsSessionTest, VerifierIsAskedInsteadOfResumingASession) {
    EXPECT_EQ(sessionOf(redirected(with(Verifiers::neutral, trusting()))), fresh());
    EXPECT_EQ(verifiers.handshakes(), 2U);
}

TEST_P(TlsSessionTest, PartialChainResumesNoSession) {
    EXPECT_EQ(sessionOf(redirected(withPartialChain(trusting()))), fresh());
}

TEST_P(TlsSessionTest, VerifierIsAskedThoughThereIsASession) {
    EXPECT_EQ(sessionOf(direct(trusting())), fresh());
    EXPECT_EQ(sessionOf(direct(with(Verifiers::neutral, trusting()))), fresh());
    EXPECT_EQ(verifiers.handshakes(), 1U);
    EXPECT_EQ(outcomeOf(direct(with(Verifiers::refusing, trusting()))), Untrusted);
}

TEST_P(TlsSessionTest, SessionOfALaxVerifierServesNobody) {
    EXPECT_EQ(sessionOf(direct(with(Verifiers::lax, strict()))), fresh());
    EXPECT_EQ(sessionOf(direct(with(Verifiers::lax, strict()))), fresh());
    EXPECT_EQ(verifiers.handshakes(), 2U);
    EXPECT_EQ(outcomeOf(direct(strict())), Untrusted);
    EXPECT_EQ(outcomeOf(direct(with(Verifiers::refusing, strict()))), Untrusted);
}

TEST_P(TlsSessionTest, SessionOfAPartialChainServesNobody) {
    EXPECT_EQ(sessionOf(direct(withPartialChain(trusting()))), fresh());
    EXPECT_EQ(sessionOf(direct(withPartialChain(trusting()))), fresh());
    EXPECT_EQ(sessionOf(direct(trusting())), fresh());
}

}  // namespace
}  // namespace kel::http::test
