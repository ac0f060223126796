// SPDX-License-Identifier: MIT
// Peers that never come to an end with their headers, trailers and questions.
#include "fixture/EngineTest.h"
#include "support/CountingProxy.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Le;
using ::testing::SizeIs;

const std::string Too_many_bytes = "failure 2: The answer has more than 256 KiB of headers";
const std::string Too_many_lines = "failure 2: The answer has more than 2000 header lines";

class EngineLimitsTest : public EngineTest {
 protected:
    EngineLimitsTest() { startEngine(); }

    std::vector<std::string> outcomeOf(const Reply& reply) {
        server.enqueue(reply);
        return outcomeOf(get());
    }

    static std::vector<std::string> outcomeOf(const RequestConfig& config) {
        const auto request = run(config);
        request->outcome.awaitCount(1);
        return request->outcome.events();
    }
};

TEST_F(EngineLimitsTest, HeadersUpToTheBoundsPass) {
    Reply many(200);
    for (int i = 0; i < 1990; ++i) many.header("X-" + std::to_string(i), "y");
    EXPECT_THAT(outcomeOf(many), ElementsAre("end"));
    Reply large(200);
    for (int i = 0; i < 20; ++i) large.header("X", std::string(12000, 'y'));
    EXPECT_THAT(outcomeOf(large), ElementsAre("end"));
}

TEST_F(EngineLimitsTest, MoreHeadersEndTheRequest) {
    Reply many(200);
    for (int i = 0; i < 2001; ++i) many.header("X-" + std::to_string(i), "y");
    EXPECT_THAT(outcomeOf(many), ElementsAre(Too_many_lines));
    Reply large(200);
    for (int i = 0; i < 23; ++i) large.header("X", std::string(12000, 'y'));
    EXPECT_THAT(outcomeOf(large), ElementsAre(Too_many_bytes));
}

TEST_F(EngineLimitsTest, EndlessTrailersEndTheRequestAndAreNoFailedWrite) {
    Reply many(200);
    many.chunked().body("body");
    for (int i = 0; i < 5000; ++i) many.trailer("T: x");
    EXPECT_THAT(outcomeOf(many), ElementsAre(Too_many_lines));
    Reply large(200);
    large.chunked().body("body");
    for (int i = 0; i < 1000; ++i) large.trailer("T: " + std::string(1000, 'x'));
    EXPECT_THAT(outcomeOf(large), ElementsAre(Too_many_bytes));
}

TEST_F(EngineLimitsTest, EndlessInterimAnswersEndTheRequest) {
    Reply reply(200);
    for (int i = 0; i < 2500; ++i) reply.interim(103, {"Link: </a>"});
    EXPECT_THAT(outcomeOf(reply), ElementsAre(Too_many_lines));
}

TEST_F(EngineLimitsTest, HeadersOfRedirectsCountTogether) {
    for (int hop = 0; hop < 6; ++hop) {
        Reply reply = Reply::redirect("/" + std::to_string(hop));
        for (int i = 0; i < 500; ++i) reply.header("X", "y");
        server.enqueue(reply);
    }
    EXPECT_THAT(outcomeOf(get()), ElementsAre(Too_many_lines));
}

// The proxy is to blame, so another one may help.
TEST_F(EngineLimitsTest, EndlessAnswersOfAProxyLeadToTheNextOne) {
    ScriptedServer target(Family::OtherIPv4);
    target.onRequest([](const ReceivedRequest&) { return Reply(200); });
    Reply endless(200);
    for (int i = 0; i < 2500; ++i) endless.header("X", "y");
    const CountingProxy good;
    engine().setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    RequestConfig config;
    config.url = target.url();
    config.proxies = {server.url(), good.url()};
    server.enqueue(endless);
    EXPECT_THAT(outcomeOf(config), ElementsAre("end"));
    EXPECT_THAT(good.requests(), SizeIs(1));
}

TEST_F(EngineLimitsTest, HeadersThatWaitedForTheEndOfAPauseCountAsWell) {
    Reply reply(200);
    reply.chunked().body("body").pause();
    for (int i = 0; i < 3000; ++i) reply.trailer("T: x");
    server.enqueue(reply);
    const auto request = this->request(get());
    request->pauseRequest();
    request->runRequest();
    request->hooks.await("header ");
    server.release();
    drain();
    request->resumeRequest();
    request->outcome.awaitCount(1);
    EXPECT_THAT(request->outcome.events(), ElementsAre(Too_many_lines));
}

TEST_F(EngineLimitsTest, AnotherRunBeginsWithABudgetOfItsOwn) {
    server.onRequest([](const ReceivedRequest&) {
        Reply reply(200);
        for (int i = 0; i < 1500; ++i) reply.header("X", "y");
        return reply;
    });
    const auto request = run(get());
    request->outcome.awaitCount(1);
    drain();
    request->runRequest();
    request->outcome.awaitCount(2);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end", "end"));
}

TEST_F(EngineLimitsTest, AServerThatAsksForCredentialsForEverIsLeft) {
    std::atomic<int> nonce{0};
    server.onRequest([&nonce](const ReceivedRequest&) {
        return Reply(401).header("WWW-Authenticate",
                                 "Digest realm=\"r\", stale=true, nonce=\"" + std::to_string(++nonce) + "\"");
    });
    RequestConfig config = get();
    config.user = "user";
    config.password = "password";
    config.caller_handles_redirects = true;  // otherwise libcurl counts these rounds as redirects
    EXPECT_THAT(outcomeOf(config),
                ElementsAre("failure 2: The server or a proxy asks for credentials again and again"));
    EXPECT_THAT(server.requests(), SizeIs(Le(11U)));
}

}  // namespace
}  // namespace kel::http::test
