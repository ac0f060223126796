// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "fixture/EngineTest.h"
#include "fixture/LogCapture.h"
#include "support/CountingProxy.h"
#include "support/SquidServer.h"
#include "support/TinyproxyServer.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

using Mode = Engine::ProxyConfigMode;

std::string basic(const ProxyUser& user) {
    return "Basic " + basicCredentials(user);
}

const std::vector<ProxyUser> Hard_users = {
    {"user", "password"}, {"the user", "pass word"}, {"user@domain", "p:a@s%s"}, {"100% u%40er", " w%40rd: @%"}};

// The engine's credentials at proxies that want them.
class EngineProxyAuthTest : public EngineTest {
 protected:
    EngineProxyAuthTest() {
        target.onRequest([](const ReceivedRequest&) { return Reply(200).body("arrived"); });
    }
    ~EngineProxyAuthTest() override { stopEngine(); }

    // The outcome of a request by an engine of its own: libcurl lets a user through a tunnel that another one has opened.
    std::vector<std::string> outcomeFor(const std::string& proxy, const ProxyUser& user) {
        stopEngine();
        startEngine().setProxyConfig(Mode::Manual, proxy, user.name, user.password);
        RequestConfig config;
        config.url = target.url();
        const RecordingRequestPtr request = run(config);
        request->outcome.awaitCount(1);
        drain();
        return request->outcome.events();
    }

    // The same at every level of the log, none of which may show `secrets`.
    void expectNoTraceOf(const std::vector<std::string>& secrets, const std::string& proxy, const ProxyUser& user) {
        for (int level = 1; level <= 9; ++level) {
            const LogCapture log(level);
            outcomeFor(proxy, user);
            EXPECT_THAT(log.all(), HasSubstr("HTTP: Incoming <= "));
            for (const std::string& secret : secrets) EXPECT_THAT(log.all(), Not(HasSubstr(secret))) << level;
        }
    }

    ScriptedServer target{Family::OtherIPv4};
};

TEST_F(EngineProxyAuthTest, CredentialsArriveAsTheyWereGiven) {
    std::vector<ProxyUser> users = Hard_users;
    users.push_back({"us:er", "\xC3\xA4 \"\\+"});
    users.push_back({"nobody", ""});
    for (const ProxyUser& user : users) {
        CountingProxy::Options options;
        options.authorization = basic(user);
        const CountingProxy proxy(options);
        EXPECT_THAT(outcomeFor(proxy.url(), user), ElementsAre("end"));
        EXPECT_THAT(proxy.authorizations(), ElementsAre(options.authorization));
    }
}

TEST_F(EngineProxyAuthTest, CredentialsAreNotSentUnlessTheyAreAskedFor) {
    const CountingProxy proxy;
    EXPECT_THAT(outcomeFor(proxy.url(), {"user", "password"}), ElementsAre("end"));
    EXPECT_THAT(proxy.authorizations(), IsEmpty());
}

TEST_F(EngineProxyAuthTest, TargetNeverSeesTheCredentials) {
    CountingProxy::Options options;
    options.authorization = basic({"user", "password"});
    const CountingProxy proxy(options);
    EXPECT_THAT(outcomeFor(proxy.url(), {"user", "password"}), ElementsAre("end"));
    EXPECT_EQ(target.requests().at(0).header("Proxy-Authorization"), std::nullopt);
}

// libcurl keeps the headers of a request for the server when there is a tunnel.
TEST_F(EngineProxyAuthTest, CredentialsAmongTheHeadersReachTheServerAndNotTheProxy) {
    const CountingProxy proxy;
    startEngine().setProxyConfig(Mode::Manual, proxy.url(), "", "");
    RequestConfig config;
    config.url = target.url();
    config.headers["Proxy-Authorization"] = basic({"user", "password"});
    run(config)->outcome.await("end");
    EXPECT_THAT(proxy.authorizations(), IsEmpty());
    EXPECT_EQ(target.requests().at(0).header("Proxy-Authorization"), basic({"user", "password"}));
    const SquidServer squid(SquidServer::Access::Basic, {{"user", "password"}});
    engine().setProxyConfig(Mode::Manual, squid.url(), "", "");
    const RecordingRequestPtr refused = run(config);
    refused->outcome.awaitCount(1);
    EXPECT_THAT(refused->outcome.events(), ElementsAre(HasSubstr("407")));
    EXPECT_THAT(target.requests(), ::testing::SizeIs(1));
}

TEST_F(EngineProxyAuthTest, SquidTakesHardUsersByBasicAuthentication) {
    const SquidServer squid(SquidServer::Access::Basic, Hard_users);
    for (const ProxyUser& user : Hard_users) EXPECT_THAT(outcomeFor(squid.url(), user), ElementsAre("end"));
}

TEST_F(EngineProxyAuthTest, SquidTakesHardUsersByDigestAuthentication) {
    const SquidServer squid(SquidServer::Access::Digest, Hard_users);
    for (const ProxyUser& user : Hard_users) EXPECT_THAT(outcomeFor(squid.url(), user), ElementsAre("end"));
}

TEST_F(EngineProxyAuthTest, TinyproxyTakesItsUser) {
    const ProxyUser user{"the.user", "pass-word_1"};
    const TinyproxyServer tinyproxy(user);
    EXPECT_THAT(outcomeFor(tinyproxy.url(), user), ElementsAre("end"));
}

TEST_F(EngineProxyAuthTest, WrongCredentialsAreOneFailure) {
    const ProxyUser user{"user", "password"};
    const ProxyUser stranger{"user", "other"};
    const SquidServer basic_squid(SquidServer::Access::Basic, {user});
    EXPECT_THAT(outcomeFor(basic_squid.url(), stranger), ElementsAre(StartsWith("failure 2: ")));
    const SquidServer digest_squid(SquidServer::Access::Digest, {user});
    EXPECT_THAT(outcomeFor(digest_squid.url(), stranger), ElementsAre(StartsWith("failure 2: ")));
    const TinyproxyServer tinyproxy(user);
    EXPECT_THAT(outcomeFor(tinyproxy.url(), stranger), ElementsAre(StartsWith("failure 2: ")));
    EXPECT_THAT(outcomeFor(basic_squid.url(), {"", "password"}), ElementsAre(StartsWith("failure 2: ")));
    EXPECT_THAT(target.requests(), IsEmpty());
}

// --- what must not be logged ---

TEST_F(EngineProxyAuthTest, NoLevelShowsWhatABasicProxyIsTold) {
    const ProxyUser user{"the user", "s3cret: w@rd%"};
    const std::vector<std::string> secrets{user.password, "s3cret", basicCredentials(user)};
    const SquidServer squid(SquidServer::Access::Basic, {user});
    expectNoTraceOf(secrets, squid.url(), user);
    CountingProxy::Options options;
    options.authorization = basic(user);
    const CountingProxy proxy(options);
    expectNoTraceOf(secrets, proxy.url(), user);
    EXPECT_THAT(proxy.authorizations(), ::testing::SizeIs(9));
}

TEST_F(EngineProxyAuthTest, NoLevelShowsWhatADigestProxyIsTold) {
    const ProxyUser user{"the user", "s3cret: w@rd%"};
    const SquidServer squid(SquidServer::Access::Digest, {user});
    expectNoTraceOf({"s3cret", "response=\"", "cnonce="}, squid.url(), user);
}

TEST_F(EngineProxyAuthTest, NoLevelShowsWhatWasRefused) {
    const ProxyUser stranger{"user", "s3cret"};
    const std::vector<std::string> secrets{"s3cret", basicCredentials(stranger), "cnonce="};
    const SquidServer basic_squid(SquidServer::Access::Basic, {{"user", "password"}});
    expectNoTraceOf(secrets, basic_squid.url(), stranger);
    const SquidServer digest_squid(SquidServer::Access::Digest, {{"user", "password"}});
    expectNoTraceOf(secrets, digest_squid.url(), stranger);
    const TinyproxyServer tinyproxy(ProxyUser{"user", "password"});
    expectNoTraceOf(secrets, tinyproxy.url(), stranger);
}

}  // namespace
}  // namespace kel::http::test
