// SPDX-License-Identifier: MIT
// The choice of proxies on its own: no engine, no transfer that runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixture/RecordingRequest.h"
#include "fixture/TestClock.h"
#include "kel-http/curl/EngineProxy.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Mode = EngineProxy::Mode;

constexpr long NoAnswer = 0;

class EngineProxyChoiceTest : public ::testing::Test {
 protected:
    EngineProxyChoiceTest() : easy(curl_easy_init()) {}
    ~EngineProxyChoiceTest() override { curl_easy_cleanup(easy); }

    void attempt() { proxy.addProxyConfig(easy, request); }
    bool goesOn(long responseCode) { return proxy.retryWithNextProxy(easy, request, responseCode); }

    CURL* const easy;
    EngineProxy proxy{&TestClock::now, *logging::getLogger("HttpClient", 0)};
    RecordingRequest request;
};

TEST_F(EngineProxyChoiceTest, SettingsAreKeptTogether) {
    EXPECT_EQ(proxy.getProxyMode(), Mode::Off);
    proxy.setProxyConfig({Mode::Manual, "url", "user", "password"});
    EXPECT_EQ(proxy.getProxyMode(), Mode::Manual);
    EXPECT_EQ(proxy.getProxyUrl(), "url");
    EXPECT_EQ(proxy.getProxyUser(), "user");
    EXPECT_EQ(proxy.getProxyPassword(), "password");
}

TEST_F(EngineProxyChoiceTest, OffAndBypassTakeNone) {
    request.remainingProxies = {"A"};
    attempt();
    EXPECT_FALSE(request.currentProxy);
    proxy.setProxyConfig({Mode::PACUrl, "", "", ""});
    request.config.proxy = Proxy::bypass_proxy;
    attempt();
    EXPECT_FALSE(request.currentProxy);
    EXPECT_THAT(request.remainingProxies, ElementsAre("A"));
    EXPECT_FALSE(goesOn(NoAnswer));
}

TEST_F(EngineProxyChoiceTest, EachAttemptTakesTheNextOfTheRequest) {
    proxy.setProxyConfig({Mode::WPAD, "", "", ""});
    request.remainingProxies = {"A", "B"};
    attempt();
    EXPECT_EQ(request.currentProxy, "A");
    EXPECT_TRUE(goesOn(NoAnswer));
    attempt();
    EXPECT_EQ(request.currentProxy, "B");
    EXPECT_FALSE(goesOn(NoAnswer));
    EXPECT_THAT(request.remainingProxies, IsEmpty());
}

TEST_F(EngineProxyChoiceTest, AnAnswerEndsTheSearchAndClearsTheProxysName) {
    proxy.setProxyConfig({Mode::PACUrl, "", "", ""});
    request.remainingProxies = {"A", "B"};
    attempt();
    EXPECT_TRUE(goesOn(NoAnswer));
    request.remainingProxies = {"A", "C"};
    attempt();
    EXPECT_EQ(request.currentProxy, "C");  // A failed and comes last
    EXPECT_FALSE(goesOn(502));
    attempt();
    EXPECT_FALSE(goesOn(200));
    request.remainingProxies = {"A", "C"};
    attempt();
    EXPECT_EQ(request.currentProxy, "A");
}

TEST_F(EngineProxyChoiceTest, TheEnginesOwnProxyIsTheOnlyOne) {
    proxy.setProxyConfig({Mode::Manual, "own", "", ""});
    request.remainingProxies = {"A"};
    attempt();
    EXPECT_EQ(request.currentProxy, "own");
    EXPECT_FALSE(goesOn(NoAnswer));
}

}  // namespace
}  // namespace kel::http::test
