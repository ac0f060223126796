// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolProcess.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/NginxServer.h"
#include "support/ScriptedServer.h"
#include "support/SilentListener.h"
#include "support/SquidServer.h"
#include "support/TinyproxyServer.h"

namespace kel::http::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using Arguments = std::vector<std::string>;

// "kel-http: the proxy http://127.0.0.1:4711 ..."
std::string told(const std::string& proxy, const std::string& what) {
    return "kel-http: the proxy " + proxy + " " + what + "\n";
}

class ToolProxyTest : public testing::Test {
 protected:
    ToolProxyTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("served"); });
    }

    ToolResult getThrough(const Arguments& proxies, const Arguments& options = {},
                          const Arguments& environment = {}) const {
        Arguments arguments = {"get", server.url()};
        for (const std::string& proxy : proxies) arguments.insert(arguments.end(), {"--proxy", proxy});
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments, {{}, environment});
    }

    ScriptedServer server{Family::OtherIPv4};
};

TEST_F(ToolProxyTest, RequestGoesThroughARealProxy) {
    SquidServer squid;
    const ToolResult result = getThrough({squid.url()}, {"-v"});
    EXPECT_EQ(result.out, "served");
    EXPECT_THAT(result.err, HasSubstr(told(squid.url(), "served the request")));
    EXPECT_THAT(squid.awaitAccessLog(1).front(), HasSubstr(server.authority()));
    const TinyproxyServer tinyproxy;
    const ToolResult without_scheme = getThrough({"127.0.0.1:" + std::to_string(tinyproxy.port())}, {"-v"});
    EXPECT_EQ(without_scheme.out, "served");
    EXPECT_THAT(without_scheme.err,
                HasSubstr(told("127.0.0.1:" + std::to_string(tinyproxy.port()), "served the request")));
}

TEST_F(ToolProxyTest, FirstProxyThatWorksServesAndTheOthersAreToldWithTheirReason) {
    const ClosedPort closed;
    const SilentListener silent;
    CountingProxy refusing(CountingProxy::Behaviour::Refuse);
    CountingProxy good;
    CountingProxy spare;
    const std::string at_closed = "http://127.0.0.1:" + std::to_string(closed.port());
    const std::string at_silent = "http://127.0.0.1:" + std::to_string(silent.port());
    const ToolResult result =
        getThrough({at_closed, at_silent, "http://host.onion:3128", refusing.url(), good.url(), spare.url()},
                   {"-v", "--timeout", "3s"});
    EXPECT_EQ(result.out, "served");
    const std::string failed = "did not serve the request: ";
    for (const std::string& line :
         {told(at_closed, failed + "the connection was refused"), told(at_silent, failed + "it timed out"),
          told("http://host.onion:3128", failed + "its address can not be found"),
          told(refusing.url(), failed + "CONNECT answered 403"), told(good.url(), "served the request")}) {
        EXPECT_THAT(result.err, HasSubstr(line));
    }
    EXPECT_EQ(spare.connectionCount(), 0U);
    EXPECT_EQ(getThrough({at_closed, good.url()}).err, "");
}

TEST_F(ToolProxyTest, ProxyThatIsGivenTwiceIsTriedAgainAsTheLast) {
    CountingProxy refusing(CountingProxy::Behaviour::Refuse);
    CountingProxy good;
    const ToolResult result = getThrough({refusing.url(), refusing.url(), good.url()}, {"-v"});
    EXPECT_EQ(result.out, "served");
    EXPECT_EQ(refusing.connectionCount(), 1U);
    EXPECT_THAT(result.err, HasSubstr(told(refusing.url(), "is tried last: it has failed a short while ago")));
}

TEST_F(ToolProxyTest, ProxyThatClosesTheConnectionIsToldAndTheNextOneServes) {
    CountingProxy closing(CountingProxy::Behaviour::Close);
    CountingProxy good;
    const ToolResult result = getThrough({closing.url(), good.url()}, {"-v"});
    EXPECT_EQ(result.out, "served");
    EXPECT_THAT(result.err, HasSubstr("the proxy " + closing.url() + " did not serve the request: "));
}

TEST_F(ToolProxyTest, ServerThatFailsBehindAProxyIsNotTakenForTheProxy) {
    CountingProxy proxy;
    NginxServer::Options options;
    options.family = Family::OtherIPv4;
    options.tls = true;
    const NginxServer untrusted(options);
    const ToolResult result = runTool({"get", untrusted.tlsUrl(), "--proxy", proxy.url(), "-v"});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("the proxy " + proxy.url() +
                                      " did not serve the request: the server behind it failed (SSL peer certificate"));
}

TEST_F(ToolProxyTest, DeadProxiesEndTheRequestInOneError) {
    const ClosedPort closed;
    const std::string proxy = "http://127.0.0.1:" + std::to_string(closed.port());
    for (const Arguments& proxies : {Arguments{proxy}, Arguments{proxy, proxy}}) {
        const ToolResult result = getThrough(proxies, {"--json"});
        EXPECT_EQ(result.exit_code, 3);
        EXPECT_EQ(nlohmann::json::parse(result.out).at("error").at("name"), "ConnectFailed");
        EXPECT_THAT(result.err, HasSubstr("is the proxy running"));
    }
    EXPECT_THAT(getThrough({"host.onion"}).err, HasSubstr("check the proxy's name"));
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(ToolProxyTest, ThisMachineIsReachedWithoutAProxy) {
    CountingProxy proxy;
    ScriptedServer local;
    local.enqueue(Reply(200).body("direct"));
    const ToolResult result = runTool({"get", local.url(), "--proxy", proxy.url(), "-v"});
    EXPECT_EQ(result.out, "direct");
    EXPECT_THAT(result.err, HasSubstr(told(proxy.url(), "was not asked: this server is reached without one")));
    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_F(ToolProxyTest, VariablesNameAProxyUnlessNoneIsWanted) {
    ScriptedServer plain_proxy;
    plain_proxy.onRequest([](const ReceivedRequest&) { return Reply(200).body("through a variable"); });
    const std::string url = "http://" + plain_proxy.authority();
    for (const char* const name : {"http_proxy=", "all_proxy=", "ALL_PROXY="}) {
        const Arguments variable = {name + url, "no_proxy=elsewhere"};
        const ToolResult result = getThrough({}, {"-v"}, variable);
        EXPECT_EQ(result.out, "through a variable") << name;
        EXPECT_THAT(result.err, HasSubstr(told(url, "served the request")));
        const ToolResult direct = getThrough({}, {"-v", "--no-proxy"}, variable);
        EXPECT_EQ(direct.out, "served") << name;
        EXPECT_THAT(direct.err, Not(HasSubstr("the proxy")));
    }
    CountingProxy given;
    EXPECT_EQ(getThrough({given.url()}, {}, {"http_proxy=" + url}).out, "served");
}

TEST_F(ToolProxyTest, EachVerboseStillPrintsItsOwnLinesOnly) {
    CountingProxy proxy;
    EXPECT_THAT(getThrough({proxy.url()}, {"-v"}).err, AllOf(HasSubstr("Outgoing"), Not(HasSubstr("using proxy"))));
    EXPECT_THAT(getThrough({proxy.url()}, {"-vv"}).err,
                AllOf(HasSubstr("using proxy"), Not(HasSubstr("Engine::doCurlProcessing"))));
    EXPECT_EQ(getThrough({proxy.url()}).err, "");
}

}  // namespace
}  // namespace kel::http::test
