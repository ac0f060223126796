// SPDX-License-Identifier: MIT
#include <algorithm>
#include <sstream>
#include <thread>

#include "curl/LineMatcher.h"
#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

using Mode = Engine::ProxyConfigMode;

// How the engine decides on a proxy. The target is one that libcurl reaches through a proxy if there is one.
class EngineProxyTest : public EngineTest {
 protected:
    EngineProxyTest() {
        target.onRequest([](const ReceivedRequest&) { return Reply(200).body("arrived"); });
        startEngine();
    }
    ~EngineProxyTest() override { stopEngine(); }

    RequestConfig getThrough(const std::list<std::string>& proxies = {}) const {
        RequestConfig config;
        config.url = target.url();
        config.proxies = proxies;
        return config;
    }

    RecordingRequestPtr runToItsEnd(const RequestConfig& config) {
        const RecordingRequestPtr made = run(config);
        made->outcome.awaitCount(1);
        drain();
        return made;
    }

    static std::string line(const RecordingRequestPtr& request, const std::string& text) {
        return '(' + std::to_string(request->id()) + ") " + text;
    }

    // The lines that tell of a decision.
    static std::vector<std::string> decisions(const LogCapture& log) {
        std::vector<std::string> found;
        for (const std::string& text : log.texts("HttpClient")) {
            if (text.find("addProxyConfig") != std::string::npos) found.push_back(text);
        }
        return found;
    }

    ScriptedServer target{Family::OtherIPv4};
    CountingProxy proxy;
};

// --- the setting ---

TEST_F(EngineProxyTest, ModesHaveTheirNames) {
    std::ostringstream names;
    names << Mode::Off << ' ' << Mode::Manual << ' ' << Mode::PACUrl << ' ' << Mode::WPAD;
    EXPECT_EQ(names.str(), "Off Manual PACUrl WPAD");
}

TEST(EngineProxyDeathTest, UnknownModeHasNoName) {
    std::ostringstream name;
    EXPECT_EXIT(name << static_cast<Mode>(4), ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(EngineProxyTest, InitiallyThereIsNoProxy) {
    EXPECT_EQ(engine().getProxyMode(), Mode::Off);
    EXPECT_EQ(engine().getProxyUrl(), "");
    EXPECT_EQ(engine().getProxyUser(), "");
    EXPECT_EQ(engine().getProxyPassword(), "");
}

TEST_F(EngineProxyTest, SettingIsKeptAsItIsGiven) {
    engine().setProxyConfig(Mode::WPAD, "http://proxy:80", "the user", "pass:word");
    EXPECT_EQ(engine().getProxyMode(), Mode::WPAD);
    EXPECT_EQ(engine().getProxyUrl(), "http://proxy:80");
    EXPECT_EQ(engine().getProxyUser(), "the user");
    EXPECT_EQ(engine().getProxyPassword(), "pass:word");
    engine().setProxyConfig(Mode::Off, "", "", "");
    EXPECT_EQ(engine().getProxyMode(), Mode::Off);
    EXPECT_EQ(engine().getProxyPassword(), "");
}

TEST_F(EngineProxyTest, SettingIsLoggedWithoutItsCredentials) {
    {
        const LogCapture log("HttpClient", 3);
        engine().setProxyConfig(Mode::Manual, "http://proxy:80", "secretuser", "secretword");
        engine().setProxyConfig(Mode::WPAD, "", "", "");
        EXPECT_THAT(
            log.lines(),
            ElementsAre(EngineLine(3, "kel-http::Engine::setProxyConfig: proxy mode='1', url='http://proxy:80'"),
                        EngineLine(3, "kel-http::Engine::setProxyConfig: proxy mode='3', url=''")));
    }
    const LogCapture log("HttpClient", 2);
    engine().setProxyConfig(Mode::Manual, "http://proxy:80", "", "");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EngineProxyTest, SettingMayBeChangedAndReadOnAnyThread) {
    std::thread writer([this] {
        for (int i = 0; i < 200; ++i) engine().setProxyConfig(Mode::Manual, proxy.url(), "user", "password");
    });
    std::thread reader([this] {
        for (int i = 0; i < 200; ++i) {
            engine().getProxyMode();
            engine().getProxyUrl();
            engine().getProxyUser();
            engine().getProxyPassword();
        }
    });
    for (int i = 0; i < 10; ++i) EXPECT_THAT(runToItsEnd(getThrough())->outcome.events(), ElementsAre("end"));
    writer.join();
    reader.join();
}

// --- the decision ---

TEST_F(EngineProxyTest, WithoutAModeTheTargetIsAskedDirectly) {
    const LogCapture log("HttpClient", 8);
    const auto request = runToItsEnd(getThrough({proxy.url()}));
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(decisions(log), IsEmpty());
    EXPECT_FALSE(request->currentProxy);
    EXPECT_THAT(request->remainingProxies, ElementsAre(proxy.url()));
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_F(EngineProxyTest, ManualModeUsesTheEnginesProxy) {
    engine().setProxyConfig(Mode::Manual, proxy.url(), "", "");
    const LogCapture log("HttpClient", 8);
    const auto request = runToItsEnd(getThrough({"http://of.the.request"}));
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(decisions(log),
                ElementsAre(line(request, "Engine::addProxyConfig proxy mode=1, using proxy '" + proxy.url() + "'")));
    EXPECT_EQ(request->currentProxy, proxy.url());
    EXPECT_THAT(request->remainingProxies, SizeIs(1));
    ASSERT_THAT(proxy.requests(), SizeIs(1));
    EXPECT_EQ(proxy.requests()[0].method, "CONNECT");
    EXPECT_EQ(proxy.requests()[0].target, target.authority());
    // The proxy's answer is heard before the target's.
    EXPECT_THAT(request->hooks.events(), Contains("header HTTP/1.1 200 Connection established"));
}

TEST_F(EngineProxyTest, ManualModeWithoutAUrlUsesNone) {
    engine().setProxyConfig(Mode::Manual, "", "", "");
    const LogCapture log("HttpClient", 4);
    const auto request = runToItsEnd(getThrough());
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(decisions(log), ElementsAre(line(request, "Engine::addProxyConfig proxy mode=1, using proxy ''")));
    EXPECT_EQ(request->currentProxy, std::string());
}

TEST_F(EngineProxyTest, MalformedProxyUrlFailsLikeAnUnknownNameAndAnUnknownSchemeLikeARefusal) {
    for (const char* const malformed : {"http://127.0.0.1:99999", "http://[", "http:// "}) {
        engine().setProxyConfig(Mode::Manual, malformed, "", "");
        EXPECT_THAT(runToItsEnd(getThrough())->outcome.events(), ElementsAre(StartsWith("failure 1: "))) << malformed;
    }
    engine().setProxyConfig(Mode::Manual, "nonsense://127.0.0.1", "", "");
    EXPECT_THAT(runToItsEnd(getThrough())->outcome.events(), ElementsAre(StartsWith("failure 5: ")));
}

TEST_F(EngineProxyTest, FailureWithoutAUrlIsListedAsTheEmptyProxy) {
    engine().setProxyConfig(Mode::Manual, "", "", "");
    RequestConfig config = getThrough();
    config.url = ClosedPort().url();
    const LogCapture log("HttpClient", 8);
    EXPECT_THAT(runToItsEnd(config)->outcome.events(), ElementsAre(StartsWith("failure 5: ")));
    EXPECT_EQ(log.count("ProxyBlackList::fail: Failure => list ''"), 1U);
}

class EngineProxyListTest : public EngineProxyTest, public ::testing::WithParamInterface<Mode> {
 protected:
    EngineProxyListTest() { engine().setProxyConfig(GetParam(), "http://not.asked", "", ""); }

    static std::string mode() { return std::to_string(static_cast<unsigned>(GetParam())); }
};

INSTANTIATE_TEST_SUITE_P(Modes, EngineProxyListTest, ::testing::Values(Mode::PACUrl, Mode::WPAD),
                         [](const auto& tested) { return tested.param == Mode::PACUrl ? "PACUrl" : "WPAD"; });

TEST_P(EngineProxyListTest, FirstProxyOfTheListIsTaken) {
    const LogCapture log("HttpClient", 8);
    const auto request = runToItsEnd(getThrough({proxy.url(), "http://second"}));
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(log.lines(), Contains(EngineLine(8, line(request, "Engine::addNewRequestWithProxies"))));
    EXPECT_THAT(log.lines(), Contains(EngineLine(
                                 8, "Available proxies: 2 entries\n [0] " + proxy.url() + "\n [1] http://second\n")));
    EXPECT_THAT(log.lines(), Contains(EngineLine(4, line(request, "Engine::addProxyConfig proxy mode=" + mode() +
                                                                      ", using proxy '" + proxy.url() + "'"))));
    EXPECT_EQ(request->currentProxy, proxy.url());
    EXPECT_THAT(request->remainingProxies, ElementsAre("http://second"));
    EXPECT_THAT(proxy.requests(), SizeIs(1));
}

TEST_P(EngineProxyListTest, EmptyListIsAnErrorInTheLogAndNoProxy) {
    const LogCapture log("HttpClient", 8);
    const auto request = runToItsEnd(getThrough());
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(log.lines(), Contains(EngineLine(8, "Available proxies: 0 entries\n")));
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, line(request, "Engine::addProxyConfig proxy mode=" + mode() +
                                                                      " but proxy list is empty!"))));
    EXPECT_THAT(
        log.lines(),
        Contains(EngineLine(4, line(request, "Engine::addProxyConfig proxy mode=" + mode() + ", using proxy ''"))));
    EXPECT_EQ(request->currentProxy, std::string());
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_P(EngineProxyListTest, NextProxyIsTriedUnderTheSameId) {
    const ClosedPort closed;
    const std::string dead = "http://127.0.0.1:" + std::to_string(closed.port());
    const LogCapture log("HttpClient", 8);
    const auto request = runToItsEnd(getThrough({dead, proxy.url()}));
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->getRedirectCount(), 2U);
    EXPECT_THAT(log.lines(), Contains(EngineLine(8, "ProxyBlackList::fail: Failure => list '" + dead + "'")));
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, line(request,
                                                         "Engine::processCompletedTasks: "
                                                         "CURLINFO_HTTP_CONNECTCODE='0'"))));
    EXPECT_THAT(log.lines(),
                Contains(EngineLine(8, line(request, "Engine::processCompletedTasks: Retry with another proxy"))));
    EXPECT_THAT(log.lines(), Contains(EngineLine(8, line(request, "Engine::addNewRequestNextProxy"))));
    EXPECT_EQ(log.count(line(request, "HTTP: Outgoing")), 2U);
    EXPECT_EQ(log.count("Failed to connect to '"), 0U);
    EXPECT_EQ(request->currentProxy, proxy.url());
    EXPECT_THAT(request->remainingProxies, IsEmpty());
}

// The next attempt is set up before anybody else hears of an end.
TEST_P(EngineProxyListTest, OtherCompletionsWaitForTheNextPassWhenAProxyIsTriedNext) {
    RequestConfig config = getThrough({"http://first", "http://second"});
    config.url = "ftp://127.0.0.2/";  // fails without asking anybody
    const LogCapture log("HttpClient", 8);
    std::vector<RecordingRequestPtr> requests;
    {
        const EngineHold hold(engine());
        requests = {run(config), run(config)};
    }
    for (const RecordingRequestPtr& request : requests) request->outcome.awaitCount(1);
    const std::vector<std::string> texts = log.texts("HttpClient");
    const auto find = [&texts](auto from, const std::string& part) {
        return std::find_if(from, texts.end(),
                            [&part](const std::string& text) { return text.find(part) != std::string::npos; });
    };
    const auto retry = find(texts.begin(), "Retry with another proxy");
    const auto other = find(retry, "HTTP: Incoming");
    ASSERT_NE(other, texts.end());
    EXPECT_NE(retry->substr(0, retry->find(')')), other->substr(0, other->find(')')));
    EXPECT_EQ(std::count(retry, other, "Engine::processPendingRequests"), 1);
}

TEST_P(EngineProxyListTest, RefusedConnectIsTellingItsStatus) {
    const CountingProxy refusing(CountingProxy::Behaviour::Refuse);
    const LogCapture log("HttpClient", 8);
    const auto request = runToItsEnd(getThrough({refusing.url()}));
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 2: ")));
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, line(request,
                                                         "Engine::processCompletedTasks: "
                                                         "CURLINFO_HTTP_CONNECTCODE='403'"))));
    EXPECT_EQ(log.count("Retry with another proxy"), 0U);
    EXPECT_EQ(request->getResponseCode(), 0U);
}

TEST_P(EngineProxyListTest, AnswerOfTheTargetIsASuccessOfTheProxyWhateverItSays) {
    CountingProxy unsteady(CountingProxy::Behaviour::Refuse);
    runToItsEnd(getThrough({unsteady.url()}));
    unsteady.setBehaviour(CountingProxy::Behaviour::Tunnel);
    target.enqueue(Reply(500));
    const LogCapture log("HttpClient", 8);
    EXPECT_THAT(runToItsEnd(getThrough({unsteady.url()}))->outcome.events(), ElementsAre("failure 6: HTTP code=500"));
    EXPECT_EQ(log.count("ProxyBlackList::success: Success => un-list '" + unsteady.url() + "'"), 1U);
}

TEST_P(EngineProxyListTest, TargetThatEndsWithoutAnAnswerIsAFailureOfTheProxy) {
    target.enqueue(Reply(200).closeBeforeHeaders());
    const CountingProxy second;
    const auto request = runToItsEnd(getThrough({proxy.url(), second.url()}));
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->currentProxy, second.url());
    EXPECT_THAT(target.requests(), SizeIs(2));
}

TEST_P(EngineProxyListTest, TargetsOnThisHostNeedNoProxy) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    RequestConfig config = get();
    config.proxies = {proxy.url()};
    EXPECT_THAT(runToItsEnd(config)->outcome.events(), ElementsAre("end"));
    config.url = "http://localhost:" + std::to_string(server.port()) + '/';
    EXPECT_THAT(runToItsEnd(config)->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_P(EngineProxyListTest, RequestThatRunsAgainStartsFromItsWholeList) {
    const auto request = runToItsEnd(getThrough({proxy.url(), "http://second"}));
    const auto first_id = request->id();
    request->config.proxies.clear();
    request->runRequest();
    request->outcome.awaitCount(2);
    drain();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end", "end"));
    EXPECT_NE(request->id(), first_id);
    EXPECT_THAT(request->remainingProxies, IsEmpty());
    EXPECT_EQ(request->currentProxy, std::string());
}

TEST_P(EngineProxyListTest, FirstRunHasItsListAtOnce) {
    RecordingRequestPtr request;
    {
        const EngineHold hold(engine());
        request = run(getThrough({proxy.url(), "http://second"}));
        EXPECT_THAT(request->remainingProxies, ElementsAre(proxy.url(), "http://second"));
    }
    request->outcome.await("end");
}

TEST_P(EngineProxyListTest, OwnerMayGiveTheListItself) {
    const auto request = std::make_shared<RecordingRequest>(getThrough());
    request->allocateRequestId();
    request->remainingProxies = {proxy.url()};
    engine().addNewRequest(request);
    request->outcome.await("end");
    EXPECT_EQ(request->currentProxy, proxy.url());
    EXPECT_EQ(proxy.connectionCount(), 1U);
}

// --- what a request does to the setting ---

TEST_F(EngineProxyTest, BypassingAListSwitchesProxiesOffForEverybody) {
    engine().setProxyConfig(Mode::PACUrl, "", "", "");
    RequestConfig config = getThrough({"http://first", "http://second"});
    config.proxy = Proxy::bypass_proxy;
    config.proxy_user = "user";
    config.proxy_password = "password";
    const LogCapture log("HttpClient", 4);
    const auto request = runToItsEnd(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(decisions(log), IsEmpty());
    EXPECT_THAT(log.lines(),
                Contains(EngineLine(3, "kel-http::Engine::setProxyConfig: proxy mode='0', url='http://first'")));
    EXPECT_FALSE(request->currentProxy);
    EXPECT_EQ(engine().getProxyMode(), Mode::Off);
    EXPECT_EQ(engine().getProxyUrl(), "http://first");
    EXPECT_EQ(engine().getProxyUser(), "user");
    EXPECT_EQ(engine().getProxyPassword(), "password");
}

TEST_F(EngineProxyTest, BypassingWithoutAListConcernsTheRequestAlone) {
    const ClosedPort closed;
    engine().setProxyConfig(Mode::Manual, closed.url(""), "", "");
    RequestConfig config = getThrough();
    config.proxy = Proxy::bypass_proxy;
    const LogCapture log("HttpClient", 4);
    const auto request = runToItsEnd(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_FALSE(request->currentProxy);
    EXPECT_THAT(decisions(log), IsEmpty());
    EXPECT_EQ(log.count("setProxyConfig"), 0U);
    EXPECT_EQ(engine().getProxyMode(), Mode::Manual);
}

TEST_F(EngineProxyTest, ListOfARequestLeavesTheSettingAlone) {
    engine().setProxyConfig(Mode::PACUrl, "http://of.the.engine", "user", "password");
    RequestConfig config = getThrough({proxy.url()});
    config.proxy_user = "another";
    runToItsEnd(config);
    EXPECT_EQ(engine().getProxyMode(), Mode::PACUrl);
    EXPECT_EQ(engine().getProxyUrl(), "http://of.the.engine");
    EXPECT_EQ(engine().getProxyUser(), "user");
}

TEST_F(EngineProxyTest, HigherNumbersOfAChoiceAreModesPlusOne) {
    RequestConfig config = getThrough({proxy.url(), "http://second"});
    config.proxy = static_cast<Proxy>(2);
    auto request = runToItsEnd(config);
    EXPECT_EQ(engine().getProxyMode(), Mode::Manual);
    EXPECT_EQ(engine().getProxyUrl(), proxy.url());
    EXPECT_EQ(request->currentProxy, proxy.url());
    EXPECT_THAT(request->remainingProxies, SizeIs(2));

    config.proxy = static_cast<Proxy>(3);
    request = runToItsEnd(config);
    EXPECT_EQ(engine().getProxyMode(), Mode::PACUrl);
    EXPECT_THAT(request->remainingProxies, ElementsAre("http://second"));

    config.proxy = static_cast<Proxy>(4);
    runToItsEnd(config);
    EXPECT_EQ(engine().getProxyMode(), Mode::WPAD);
    EXPECT_THAT(proxy.requests(), Not(IsEmpty()));
}

// --- proxies of the environment ---

class ProxyVariable {
 public:
    explicit ProxyVariable(const std::string& url) { setenv("http_proxy", url.c_str(), 1); }
    ~ProxyVariable() { unsetenv("http_proxy"); }
    ProxyVariable(const ProxyVariable&) = delete;
    ProxyVariable& operator=(const ProxyVariable&) = delete;
};

TEST_F(EngineProxyTest, EnvironmentIsFollowedWhereNoProxyOptionIsSet) {
    stopEngine();
    const ProxyVariable variable(proxy.url());
    startEngine();
    runToItsEnd(getThrough());
    ASSERT_THAT(proxy.requests(), SizeIs(1));
    EXPECT_EQ(proxy.requests()[0].method, "GET");

    engine().setProxyConfig(Mode::Manual, "", "", "");
    EXPECT_THAT(runToItsEnd(getThrough())->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(proxy.requests(), SizeIs(1));

    RequestConfig bypassing = getThrough();
    bypassing.proxy = Proxy::bypass_proxy;
    runToItsEnd(bypassing);
    EXPECT_THAT(proxy.requests(), SizeIs(2));
    stopEngine();
}

}  // namespace
}  // namespace kel::http::test
