// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolProcess.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/ScriptedServer.h"
#include "support/SquidServer.h"
#include "support/TinyproxyServer.h"

namespace kel::http::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using Arguments = std::vector<std::string>;

constexpr const char* Name = "me@home %41";
constexpr const char* Password = "open:se@same %2F";
constexpr const char* Encoded = "open%3Ase%40same%20%252F";
constexpr const char* InBase64 = "bWVAaG9tZSAlNDE6b3BlbjpzZUBzYW1lICUyRg==";

class ToolProxyLoginTest : public testing::Test {
 protected:
    ToolProxyLoginTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("served"); });
    }

    static CountingProxy::Options asking() {
        CountingProxy::Options options;
        options.authorization = std::string("Basic ") + InBase64;
        return options;
    }

    ToolResult getThrough(const Arguments& proxies, const Arguments& options, const Arguments& environment = {}) const {
        Arguments arguments = {"get", server.url()};
        for (const std::string& proxy : proxies) arguments.insert(arguments.end(), {"--proxy", proxy});
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments, {{}, environment});
    }

    ScriptedServer server{Family::OtherIPv4};
    const Arguments login = {"--proxy-user", std::string(Name) + ":" + Password};
};

testing::Matcher<std::string> showsNoPassword() {
    return AllOf(Not(HasSubstr(Password)), Not(HasSubstr(Encoded)), Not(HasSubstr(InBase64)));
}

TEST_F(ToolProxyLoginTest, RealProxiesLetTheUserIn) {
    for (const auto access : {SquidServer::Access::Basic, SquidServer::Access::Digest}) {
        const SquidServer squid(access, {{Name, Password}});
        EXPECT_EQ(getThrough({squid.url()}, login).out, "served");
        EXPECT_EQ(getThrough({squid.url(), squid.url()}, login).out, "served");
        EXPECT_EQ(getThrough({squid.url()}, {"--proxy-user", "me:wrong"}).exit_code, 3);
    }
    const TinyproxyServer tinyproxy(ProxyUser{"me", "secret"});
    EXPECT_EQ(getThrough({tinyproxy.url()}, {"--proxy-user", "me:secret"}).out, "served");
}

TEST_F(ToolProxyLoginTest, ListIsTriedWithTheSameLogin) {
    CountingProxy refusing(CountingProxy::Behaviour::Refuse);
    CountingProxy good(asking());
    EXPECT_EQ(getThrough({refusing.url(), good.url()}, login).out, "served");
    EXPECT_EQ(getThrough({refusing.url(), good.url().substr(7)}, login).out, "served");
    EXPECT_EQ(good.authorizations().back(), std::string("Basic ") + InBase64);
}

TEST_F(ToolProxyLoginTest, PasswordComesFromTheEnvironment) {
    CountingProxy proxy(asking());
    const Arguments variable = {std::string("KEL_HTTP_PROXY_PASSWORD=") + Password};
    EXPECT_EQ(getThrough({proxy.url()}, {"--proxy-user", Name}, variable).out, "served");
    EXPECT_EQ(getThrough({proxy.url(), proxy.url()}, {"--proxy-user", Name}, variable).out, "served");
    EXPECT_EQ(getThrough({proxy.url()}, {"--proxy-user", std::string(Name) + ":"}, variable).exit_code, 3);
}

TEST_F(ToolProxyLoginTest, LoginStandsInTheUrlAsWell) {
    CountingProxy proxy(asking());
    const std::string url = std::string("http://me%40home%20%2541:") + Encoded + "@" + proxy.url().substr(7);
    EXPECT_EQ(getThrough({url}, {}).out, "served");
    EXPECT_EQ(getThrough({url, url}, {}).out, "served");
}

TEST_F(ToolProxyLoginTest, ProxyThatKnowsNobodyAsksForTheOption) {
    CountingProxy proxy(asking());
    for (const Arguments& options : {Arguments{"-v"}, Arguments{"-v", "--proxy-user", "me:wrong"}}) {
        const ToolResult result = getThrough({proxy.url()}, options);
        EXPECT_EQ(result.exit_code, 3);
        EXPECT_THAT(result.err, HasSubstr("see --proxy-user (CONNECT answered 407)"));
        EXPECT_THAT(result.err, HasSubstr("give it with --proxy-user"));
    }
}

TEST_F(ToolProxyLoginTest, PasswordIsNeverPrintedHoweverMuchIsLogged) {
    CountingProxy refusing(CountingProxy::Behaviour::Refuse);
    CountingProxy good(asking());
    const std::string in_url = std::string("http://me%40home%20%2541:") + Encoded + "@" + good.url().substr(7);
    for (const ToolResult& result :
         {getThrough({good.url()}, {login[0], login[1], "-vvvv", "--json"}),
          getThrough({refusing.url(), good.url()}, {login[0], login[1], "-vvvv", "--json"}),
          getThrough({in_url}, {"-vvvv"}), getThrough({refusing.url(), in_url}, {"-vvvv"}),
          getThrough({}, {"-vvvv"}, {"http_proxy=" + in_url}), getThrough({}, {"-vvvv"}, {"ALL_PROXY=" + in_url})}) {
        EXPECT_THAT(result.err, HasSubstr("[header IN]"));
        EXPECT_THAT(result.err + result.out, showsNoPassword());
    }
    EXPECT_THAT(getThrough({in_url}, {"-v"}).err, HasSubstr("the proxy " + good.url() + " served the request"));
}

TEST_F(ToolProxyLoginTest, PasswordIsNotInMessagesEither) {
    const ClosedPort closed;
    const std::string port = std::to_string(closed.port());
    const std::string user = std::string("http://me:") + Encoded;
    for (const Arguments& proxies :
         {Arguments{user + "@127.0.0.1:" + port}, Arguments{user + "@127.0.0.1:" + port + "x"},
          Arguments{user + "@no such host"}, Arguments{user + "/@host"}, Arguments{user + "@" + Password + "@host"},
          Arguments{"ftp" + user.substr(4) + "@host"}}) {
        const ToolResult result = getThrough(proxies, {"--json", "-v"});
        EXPECT_NE(result.exit_code, 0);
        EXPECT_THAT(result.err + result.out, showsNoPassword()) << result.err;
    }
    EXPECT_THAT(getThrough({user + "@127.0.0.1:" + port + "x"}, {}).err,
                HasSubstr("'http://xxxxxx@127.0.0.1:" + port + "x'"));
    for (const Arguments& options : {login, Arguments{login[0], login[1], "--no-such-option"},
                                     Arguments{login[0], std::string(":") + Password, "--proxy", "http://host"}}) {
        const ToolResult result = getThrough({}, options);
        EXPECT_EQ(result.exit_code, 1);
        EXPECT_THAT(result.err + result.out, showsNoPassword());
    }
}

}  // namespace
}  // namespace kel::http::test
