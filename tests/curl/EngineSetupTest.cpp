// SPDX-License-Identifier: MIT
#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "support/ClosedPort.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class EngineSetupTest : public EngineTest {
 protected:
    EngineSetupTest() { startEngine(); }

    RecordingRequestPtr finish(const RequestConfig& config) {
        const auto made = run(config);
        made->outcome.awaitCount(1);
        return made;
    }
    std::string outcomeOf(const RequestConfig& config) { return finish(config)->outcome.events().at(0); }

    RequestConfig to(const std::string& url) {
        RequestConfig config;
        config.url = url;
        return config;
    }

    static std::string prefix(const Request& request) { return "(" + std::to_string(request.id()) + ") "; }
};

// --- the dump ---

TEST_F(EngineSetupTest, ConfigurationIsDumpedLineByLine) {
    server.enqueue(Reply(200));
    const LogCapture log("HttpClient", 1);
    RequestConfig config = get("/dumped");
    config.method = Method::POST;
    config.body = "secret";
    config.user = "secret";
    const auto request = finish(config);
    const std::string id = prefix(*request);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(EngineLine(1, id + "HTTP: Outgoing => POST " + config.url), EngineLine(1, id + "AuthMethod : ANY"),
                    EngineLine(1, id + "Flags      : curl-handles-redirects, ro-cookies, tls-verify, use-proxy"),
                    EngineLine(1, id + "BODY       : 6 bytes"),
                    EngineLine(1, id + "HTTP: Incoming <= 200, 'No error'")));
}

TEST_F(EngineSetupTest, SilentLoggerDumpsNothing) {
    server.enqueue(Reply(200));
    const LogCapture log("HttpClient", 0);
    finish(get());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EngineSetupTest, NewRequestIsLoggedByItsCaller) {
    server.enqueue(Reply(200));
    const LogCapture log("HttpClient", 8);
    const auto request = finish(get());
    EXPECT_THAT(log.lines(), Contains(EngineLine(8, prefix(*request) + "Engine::addNewRequest")));
}

// --- the target ---

TEST_F(EngineSetupTest, UrlWithoutASchemeIsHttp) {
    server.enqueue(Reply(200));
    EXPECT_EQ(outcomeOf(to(server.authority() + "/path")), "end");
    EXPECT_EQ(server.requests().at(0).target, "/path");
}

TEST_F(EngineSetupTest, OtherProtocolIsAnInvalidUrl) {
    for (const char* scheme : {"ftp", "file", "gopher", "dict", "imap"}) {
        EXPECT_EQ(outcomeOf(to(std::string(scheme) + "://127.0.0.1/x")),
                  "failure 0: Protocol \"" + std::string(scheme) + "\" not supported or disabled in libcurl");
    }
}

TEST_F(EngineSetupTest, MalformedUrlIsAnInvalidUrl) {
    EXPECT_THAT(outcomeOf(to("")), StartsWith("failure 0: "));
    EXPECT_THAT(outcomeOf(to("http://")), StartsWith("failure 0: "));
    EXPECT_THAT(outcomeOf(to("http://a b/")), StartsWith("failure 0: "));
    EXPECT_THAT(outcomeOf(to("http://host:99999/")), StartsWith("failure 0: "));
}

TEST_F(EngineSetupTest, ZeroByteInTheUrlIsAnInvalidUrlAndNothingIsSent) {
    EXPECT_THAT(outcomeOf(to(server.url("/good") + std::string("\0.evil", 6))), StartsWith("failure 0: "));
    drain();
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(EngineSetupTest, RefusedConnectionIsAConnectFailure) {
    const ClosedPort closed;
    EXPECT_THAT(outcomeOf(to(closed.url())),
                StartsWith("failure 5: Failed to connect to 127.0.0.1 port " + std::to_string(closed.port())));
}

// --- redirects ---

TEST_F(EngineSetupTest, FiveRedirectsAreFollowed) {
    const NginxServer nginx;
    const auto request = finish(to(nginx.url("/redirect/5")));
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->body(), "arrived");
    EXPECT_EQ(request->getResponseCode(), 200U);
}

TEST_F(EngineSetupTest, SixthRedirectFails) {
    const NginxServer nginx;
    const auto request = finish(to(nginx.url("/redirect/6")));
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 2: Maximum (5) redirects followed"));
    EXPECT_EQ(request->getResponseCode(), 302U);
}

TEST_F(EngineSetupTest, CallerHandlesRedirectsOnDemand) {
    const NginxServer nginx;
    RequestConfig config = to(nginx.url("/redirect/3"));
    config.caller_handles_redirects = true;
    const auto request = finish(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->getResponseCode(), 302U);
    EXPECT_EQ(request->getRedirectUrl(), nginx.url("/redirect/2"));
}

TEST_F(EngineSetupTest, WhoHandlesRedirectsIsLogged) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    RequestConfig config = get("/r");
    const LogCapture log("HttpClient", 8);
    const auto followed = finish(config);
    config.caller_handles_redirects = true;
    const auto handed_over = finish(config);
    EXPECT_THAT(log.lines(),
                Contains(EngineLine(8, prefix(*followed) + "CURL will handle HTTP redirects for url=" + config.url)));
    EXPECT_THAT(log.lines(), Contains(EngineLine(
                                 8, prefix(*handed_over) + "client will handle HTTP redirects for url=" + config.url)));
}

TEST_F(EngineSetupTest, RedirectToAnotherProtocolIsRefused) {
    server.enqueue(Reply::redirect("ftp://127.0.0.1/file"));
    EXPECT_EQ(outcomeOf(get()), "failure 0: Protocol \"ftp\" not supported or disabled in libcurl");
}

// --- limits ---

TEST_F(EngineSetupTest, DeclaredLengthAboveTheLimitFails) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.onRequest([](const ReceivedRequest& request) { return Reply(200).body(request.target.substr(1)); });
    config.url = server.url("/0123456789");
    EXPECT_EQ(outcomeOf(config), "end");
    config.url = server.url("/0123456789a");
    const LogCapture log("HttpClient", 1);
    EXPECT_EQ(outcomeOf(config), "failure 2: Maximum file size exceeded");
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, "Got unexpected Curl error code: 63")));
}

TEST_F(EngineSetupTest, UndeclaredLengthIsLeftToTheDataHook) {
    server.enqueue(Reply(200).chunked().body("0123456789a"));
    RequestConfig config = get();
    config.size_limit = 10U;
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineSetupTest, LimitOfZeroIsLeftToTheDataHook) {
    server.enqueue(Reply(200).body("x"));
    RequestConfig config = get();
    config.size_limit = 0U;
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineSetupTest, StalledServerRunsIntoTheTimeOut) {
    const LogCapture log("HttpClient", 8);
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(200);
    const auto request = finish(config);
    EXPECT_THAT(request->outcome.events(),
                ElementsAre(AllOf(StartsWith("failure 3: "), HasSubstr(" timed out after "))));
    EXPECT_THAT(log.lines(), Contains(EngineLine(8, prefix(*request) + "setting timeout of task to 200")));
    server.awaitPeerClosed(1);
}

TEST_F(EngineSetupTest, TimeOutInsideTheBodyIsAFailureWithTheStatus) {
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(1000);  // time enough for the status
    const auto request = finish(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 3: Operation timed out after ")));
    EXPECT_EQ(request->getResponseCode(), 200U);
}

TEST_F(EngineSetupTest, TimeOutOfZeroOrAWholeAgeSetsNoEarlyEnd) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    const LogCapture log("HttpClient", 8);
    EXPECT_EQ(outcomeOf(get()), "end");
    EXPECT_FALSE(log.contains("setting timeout"));
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds::max();
    EXPECT_EQ(outcomeOf(config), "end");
    config.timeout = std::chrono::milliseconds(-1);
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineSetupTest, SpeedLimitIsSetAndLogged) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("0123456789"); });
    const LogCapture log("HttpClient", 4);
    RequestConfig config = get();
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_FALSE(log.contains("speed limit"));
    config.speed_limit = 4000000000U;
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_THAT(log.lines(), Contains(EngineLine(4, "setting speed limit of task to 4000000000")));
}

// --- resuming ---

TEST_F(EngineSetupTest, ResumedDownloadAsksForTheRest) {
    const TemporaryDirectory directory;
    writeWholeFile(directory.path("partial"), "01234");
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"));
    RequestConfig config = get();
    config.resume = true;
    config.download_path = directory.path("partial");
    const auto request = finish(config);
    EXPECT_EQ(request->body(), "56789");
    EXPECT_EQ(server.requests().at(0).header("Range"), "bytes=5-");
}

TEST_F(EngineSetupTest, ResumeWithoutAFileStartsFromTheBeginning) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    RequestConfig config = get();
    config.resume = true;
    EXPECT_EQ(outcomeOf(config), "end");
    config.download_path = "/nonexistent/file";
    EXPECT_EQ(outcomeOf(config), "end");
    config.download_path = "/etc/hosts/file";
    EXPECT_EQ(outcomeOf(config), "end");
    for (const ReceivedRequest& request : server.requests()) EXPECT_FALSE(request.header("Range"));
}

TEST_F(EngineSetupTest, FileIsNotLookedAtUnlessResumeIsAskedFor) {
    server.enqueue(Reply(200));
    RequestConfig config = get();
    config.download_path = "/etc/hosts";
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_FALSE(server.requests().at(0).header("Range"));
}

TEST_F(EngineSetupTest, ResumingADirectoryFailsTheRequestWithTheSystemsText) {
    const TemporaryDirectory directory;
    const LogCapture log("HttpClient", 1);
    RequestConfig config = get();
    config.resume = true;
    config.download_path = directory.path();
    const auto request = finish(config);
    const std::string text = request->outcome.events().at(0);
    EXPECT_THAT(text, StartsWith("failure 2: boost::filesystem::file_size: "));
    EXPECT_THAT(text, HasSubstr(directory.path()));
    EXPECT_EQ(request->getResponseCode(), 0U);
    EXPECT_THAT(log.lines(),
                Contains(EngineLine(1, prefix(*request) + "Engine::addTask: The request can not be sent: " +
                                           text.substr(std::string("failure 2: ").size()))));
    drain();
    EXPECT_EQ(server.connectionCount(), 0U);
}

// libcurl would take the offset for the request's own body, and read as much from standard input.
TEST_F(EngineSetupTest, OnlyAGetCanResume) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("partial");
    writeWholeFile(path, "01234");
    for (const Method method : {Method::POST, Method::PUT, Method::DELETE, Method::PATCH}) {
        RequestConfig config = get();
        config.method = method;
        config.body = "body";
        config.resume = true;
        config.download_path = path;
        EXPECT_EQ(outcomeOf(config),
                  fmt::format("failure 2: Only a GET can resume a download, not a {}: '{}' has 5 bytes "
                              "already, remove the file or do not ask to resume",
                              method, path));
    }
    drain();
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(EngineSetupTest, OtherMethodsMayBeginWhereThereIsNothingToResume) {
    const TemporaryDirectory directory;
    writeWholeFile(directory.path("empty"), "");
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    for (const std::string& path : {directory.path("empty"), directory.path("none")}) {
        for (const Method method : {Method::POST, Method::PUT, Method::DELETE, Method::PATCH}) {
            RequestConfig config = get();
            config.method = method;
            config.body = "body";
            config.resume = true;
            config.download_path = path;
            EXPECT_EQ(outcomeOf(config), "end");
            EXPECT_EQ(server.requests().back().body, "body");
            EXPECT_FALSE(server.requests().back().header("Range"));
        }
    }
}

TEST_F(EngineSetupTest, ServerThatCanNotGoOnIsARangeError) {
    const TemporaryDirectory directory;
    writeWholeFile(directory.path("partial"), "01234");
    server.enqueue(Reply(200).body("0123456789"));
    RequestConfig config = get();
    config.resume = true;
    config.download_path = directory.path("partial");
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 8: HTTP server doesn't seem to support byte ranges"));
}

// --- credentials ---

class EngineCredentialsTest : public EngineSetupTest {
 protected:
    EngineCredentialsTest() {
        config = to(nginx.url("/auth/secret"));
        config.user = NginxServer::AuthUser;
        config.password = NginxServer::AuthPassword;
    }

    NginxServer nginx;
    RequestConfig config;
};

TEST_F(EngineCredentialsTest, BasicAnswersAChallenge) {
    config.auth_method = AuthMethod::BASIC;
    const auto request = finish(config);
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->body(), "welcome");
    EXPECT_THAT(nginx.awaitAccessLog(2),
                ElementsAre(HasSubstr("GET /auth/secret 401"), HasSubstr("GET /auth/secret 200")));
}

TEST_F(EngineCredentialsTest, AnyAnswersAChallenge) {
    const auto request = finish(config);
    EXPECT_EQ(request->body(), "welcome");
    EXPECT_THAT(nginx.awaitAccessLog(2), SizeIs(2));
}

TEST_F(EngineCredentialsTest, WrongPasswordIsAnAuthFailure) {
    config.password = "wrong";
    EXPECT_EQ(outcomeOf(config), "failure 4: HTTP code=401");
}

TEST_F(EngineCredentialsTest, EmptyUserLeavesThePasswordUnused) {
    config.user.clear();
    EXPECT_EQ(outcomeOf(config), "failure 4: HTTP code=401");
    EXPECT_THAT(nginx.awaitAccessLog(1), SizeIs(1));
}

TEST_F(EngineCredentialsTest, ServerThatNeverAsksNeverSeesThem) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    config.url = server.url();
    for (const AuthMethod method : {AuthMethod::BASIC, AuthMethod::ANY}) {
        config.auth_method = method;
        EXPECT_EQ(outcomeOf(config), "end");
    }
    for (const ReceivedRequest& request : server.requests()) EXPECT_FALSE(request.header("Authorization"));
}

TEST_F(EngineCredentialsTest, BasicDoesNotAnswerADigestChallenge) {
    config.auth_method = AuthMethod::BASIC;
    config.url = server.url();
    server.enqueue(Reply(401).header("WWW-Authenticate", "Digest realm=\"r\", nonce=\"n\""));
    EXPECT_EQ(outcomeOf(config), "failure 4: HTTP code=401");
    EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(EngineCredentialsTest, AnyAnswersADigestChallenge) {
    config.url = server.url();
    server.enqueue(Reply(401).header("WWW-Authenticate", "Digest realm=\"r\", nonce=\"n\""));
    server.enqueue(Reply(200));
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_THAT(server.requests().at(1).header("Authorization").value_or(""), StartsWith("Digest username=\"user\""));
}

// --- addresses and fresh state ---

TEST_F(EngineSetupTest, IpVersionDecidesWhichAddressIsUsed) {
    ScriptedServer six(Family::IPv6);
    six.onRequest([](const ReceivedRequest&) { return Reply(200); });
    RequestConfig config = to("http://localhost:" + std::to_string(six.port()));
    config.ip_version = IPVersion::IPv6;
    const auto over_six = finish(config);
    EXPECT_THAT(over_six->outcome.events(), ElementsAre("end"));
    EXPECT_THAT(over_six->hooks.events(), Contains("address ::1:" + std::to_string(six.port())));

    server.enqueue(Reply(200));
    config.url = "http://localhost:" + std::to_string(server.port());
    config.ip_version = IPVersion::IPv4;
    EXPECT_THAT(finish(config)->hooks.events(), Contains("address 127.0.0.1:" + std::to_string(server.port())));
}

TEST_F(EngineSetupTest, Ipv6AddressIsReached) {
    ScriptedServer six(Family::IPv6);
    six.enqueue(Reply(200));
    EXPECT_EQ(outcomeOf(to(six.url())), "end");
}

TEST_F(EngineSetupTest, ResetStateOpensAFreshConnection) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    finish(get());
    finish(get());
    EXPECT_EQ(server.connectionCount(), 1U);
    RequestConfig config = get();
    config.reset_state = true;
    finish(config);
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(EngineSetupTest, EnvironmentNamesTheProxy) {
    // Nothing of ours touches libcurl's own proxy variables.
    setenv("http_proxy", server.url().c_str(), 1);
    server.enqueue(Reply(200).body("by proxy"));
    const auto request = run(to("http://origin.example/path"));
    request->outcome.awaitCount(1);
    unsetenv("http_proxy");
    EXPECT_EQ(request->body(), "by proxy");
    EXPECT_EQ(server.requests().at(0).target, "http://origin.example/path");
}

}  // namespace
}  // namespace kel::http::test
