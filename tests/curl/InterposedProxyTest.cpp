// SPDX-License-Identifier: MIT
#include <dlfcn.h>

#include <algorithm>
#include <atomic>

#include "curl/Interposed.h"
#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "fixture/TestHost.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"

namespace {

std::atomic<const char*> unescapable{nullptr};

}  // namespace

// Has no memory for one text, if the test says so.
extern "C" char* curl_easy_escape(CURL* easy, const char* text, int length) {
    static auto* const real =
        reinterpret_cast<char* (*)(CURL*, const char*, int)>(dlsym(RTLD_NEXT, "curl_easy_escape"));
    const char* const refused = unescapable;
    if (refused != nullptr && std::string(refused) == text) return nullptr;
    return real(easy, text, length);
}

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Mode = Engine::ProxyConfigMode;
using Options = std::vector<std::string>;

constexpr const char* Short_list = "localhost,127.0.0.1";
constexpr const char* Long_list = "localhost,127.0.0.1, .device-services.kel.example.net";

// The proxy options that the engine gives libcurl for one request each.
class InterposedProxyTest : public EngineTest {
 protected:
    InterposedProxyTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        startEngine();
    }
    ~InterposedProxyTest() override {
        stopEngine();
        unescapable = nullptr;
    }

    Options optionsOf(const RequestConfig& config) {
        interposed.forgetOptions();
        request = run(config);
        request->outcome.awaitCount(1);
        drain();
        Options found;
        for (const std::string& option : interposed.options()) {
            if (option.find("PROXY") != std::string::npos) found.push_back(option);
        }
        return found;
    }

    static Options common(const std::string& proxy, const std::string& hosts = Long_list) {
        return {"CURLOPT_PROXY=" + proxy, "CURLOPT_HTTPPROXYTUNNEL=1", "CURLOPT_PROXYAUTH=3",
                "CURLOPT_NOPROXY=" + hosts};
    }

    Interposed interposed;
    RecordingRequestPtr request;
};

TEST_F(InterposedProxyTest, WithoutAModeNoOptionIsSet) {
    EXPECT_THAT(optionsOf(get()), IsEmpty());
}

TEST_F(InterposedProxyTest, BypassingSetsNoOption) {
    engine().setProxyConfig(Mode::Manual, "http://proxy:3128", "user", "password");
    RequestConfig config = get();
    config.proxy = Proxy::bypass_proxy;
    EXPECT_THAT(optionsOf(config), IsEmpty());
}

TEST_F(InterposedProxyTest, ManualModeSetsAllOptionsInOrder) {
    engine().setProxyConfig(Mode::Manual, "http://proxy:3128", "user", "password");
    Options expected = common("http://proxy:3128");
    expected.emplace_back("CURLOPT_PROXYUSERPWD=user:password");
    EXPECT_EQ(optionsOf(get()), expected);
}

TEST_F(InterposedProxyTest, EmptyUrlIsSetToo) {
    engine().setProxyConfig(Mode::Manual, "", "", "");
    EXPECT_EQ(optionsOf(get()), common(""));
}

TEST_F(InterposedProxyTest, EmptyListSetsTheEmptyProxy) {
    engine().setProxyConfig(Mode::PACUrl, "http://proxy:3128", "", "");
    EXPECT_EQ(optionsOf(get()), common(""));
}

TEST_F(InterposedProxyTest, UnknownModeSetsTheEmptyProxyWithoutCredentials) {
    engine().setProxyConfig(static_cast<Mode>(7), "http://proxy:3128", "user", "password");
    const LogCapture log("HttpClient", 4);
    EXPECT_EQ(optionsOf(get()), common(""));
    EXPECT_THAT(log.lines(), Contains(EngineLine(4, '(' + std::to_string(request->id()) +
                                                        ") Engine::addProxyConfig proxy mode=7, using proxy ''")));
}

TEST_F(InterposedProxyTest, ProxyOfTheListHasNoCredentials) {
    for (const Mode mode : {Mode::PACUrl, Mode::WPAD}) {
        engine().setProxyConfig(mode, "http://proxy:3128", "user", "password");
        RequestConfig config = get();
        config.proxies = {"http://first:1", "http://second:2"};
        config.proxy_user = "user";
        config.proxy_password = "password";
        EXPECT_EQ(optionsOf(config), common("http://first:1"));
    }
}

TEST_F(InterposedProxyTest, OptionsComeBetweenHeadersAndTls) {
    engine().setProxyConfig(Mode::Manual, "", "", "");
    optionsOf(get());
    const Options all = interposed.options();
    const auto place = [&all](const std::string& beginning) {
        return std::find_if(all.begin(), all.end(),
                            [&beginning](const std::string& option) { return option.rfind(beginning, 0) == 0; });
    };
    EXPECT_LT(place("CURLOPT_HTTPHEADER="), place("CURLOPT_PROXY="));
    EXPECT_LT(place(std::string("CURLOPT_NOPROXY=") + Long_list), place("CURLOPT_SSLVERSION=5"));
}

// --- hosts that need no proxy ---

TEST_F(InterposedProxyTest, ReleaseBuildsKnowTheirOwnHostOnly) {
    EXPECT_EQ(std::string(Long_list).size(), 53U);
    engine().setProxyConfig(Mode::Manual, "", "", "");
    const auto hosts = [this](bool release, bool test_mode) {
        const TestHost host([=](ko::host::Settings& settings) {
            settings.release_build = release;
            settings.test_mode = test_mode;
        });
        return optionsOf(get()).back();
    };
    EXPECT_EQ(hosts(true, false), std::string("CURLOPT_NOPROXY=") + Short_list);
    EXPECT_EQ(hosts(true, true), std::string("CURLOPT_NOPROXY=") + Long_list);
    EXPECT_EQ(hosts(false, false), std::string("CURLOPT_NOPROXY=") + Long_list);
    EXPECT_EQ(hosts(false, true), std::string("CURLOPT_NOPROXY=") + Long_list);
}

TEST_F(InterposedProxyTest, ServicesOfTheDeploymentAreReachedDirectlySaveByReleaseBuilds) {
    interposed.holdNames();
    interposed.releaseNames();
    const CountingProxy proxy(CountingProxy::Behaviour::Refuse);
    engine().setProxyConfig(Mode::Manual, proxy.url(), "", "");
    RequestConfig config;
    config.url = "http://a.device-services.kel.example.net:" + std::to_string(server.port()) + '/';
    optionsOf(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(proxy.connectionCount(), 0U);

    const TestHost host([](ko::host::Settings& settings) { settings.release_build = true; });
    optionsOf(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre(::testing::StartsWith("failure 2: ")));
    EXPECT_THAT(proxy.requests(), SizeIs(1));
}

// --- credentials ---

TEST_F(InterposedProxyTest, CredentialsAreEscaped) {
    engine().setProxyConfig(Mode::Manual, "", "u:s@e%r 1", "p:a@s%s w%40rd");
    EXPECT_EQ(optionsOf(get()).back(), "CURLOPT_PROXYUSERPWD=u%3As%40e%25r%201:p%3Aa%40s%25s%20w%2540rd");
}

TEST_F(InterposedProxyTest, EmptyPasswordIsSet) {
    engine().setProxyConfig(Mode::Manual, "", "user", "");
    EXPECT_EQ(optionsOf(get()).back(), "CURLOPT_PROXYUSERPWD=user:");
}

TEST_F(InterposedProxyTest, PasswordWithoutAUserIsNotSet) {
    engine().setProxyConfig(Mode::Manual, "", "", "password");
    EXPECT_EQ(optionsOf(get()), common(""));
}

TEST_F(InterposedProxyTest, EngineNotTheRequestHasTheCredentials) {
    engine().setProxyConfig(Mode::Manual, "", "user", "password");
    RequestConfig config = get();
    config.proxy_user = "another";
    config.proxy_password = "word";
    EXPECT_EQ(optionsOf(config).back(), "CURLOPT_PROXYUSERPWD=user:password");
}

TEST_F(InterposedProxyTest, UserThatCanNotBeEscapedFailsTheRequest) {
    engine().setProxyConfig(Mode::Manual, "", "the user", "the password");
    unescapable = "the user";
    const LogCapture log("HttpClient", 1);
    optionsOf(get());
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, '(' + std::to_string(request->id()) +
                                                        ") addProxyConfig: Encoding proxy username failed")));
    EXPECT_EQ(log.count("Encoding proxy"), 1U);
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 2: Out of memory"));
}

TEST_F(InterposedProxyTest, PasswordThatCanNotBeEscapedFailsTheRequest) {
    engine().setProxyConfig(Mode::Manual, "", "the user", "the password");
    unescapable = "the password";
    const LogCapture log("HttpClient", 1);
    optionsOf(get());
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, '(' + std::to_string(request->id()) +
                                                        ") addProxyConfig: Encoding proxy password failed")));
    EXPECT_EQ(log.count("Encoding proxy"), 1U);
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 2: Out of memory"));
}

}  // namespace
}  // namespace kel::http::test
