// SPDX-License-Identifier: MIT
// Which transfers get a handle that has served others, and that nobody can tell.
#include <algorithm>
#include <string>
#include <vector>

#include "curl/Interposed.h"
#include "fixture/CookieFolder.h"
#include "fixture/EngineTest.h"
#include "kel-http/curl/EasyHandles.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

class InterposedHandlesTest : public EngineTest {
 protected:
    InterposedHandlesTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
        startEngine();
    }
    ~InterposedHandlesTest() override { stopEngine(); }

    RecordingRequestPtr fetch(const RequestConfig& config) {
        const auto made = run(config);
        made->outcome.awaitCount(1);
        drain();
        return made;
    }
    std::string outcomeOf(const RequestConfig& config) { return fetch(config)->outcome.events().at(0); }

    // The next one gets the handle of the one before, or another.
    bool nextSharesHandle() {
        const std::size_t before = interposed.handles().back();
        EXPECT_EQ(outcomeOf(get("/next")), "end");
        return interposed.handles().back() == before;
    }
    bool allShareAHandle() const {
        const std::vector<std::size_t> all = interposed.handles();
        return std::count(all.begin(), all.end(), all.front()) == static_cast<std::ptrdiff_t>(all.size());
    }

    std::vector<std::string> lastHeaders(const std::string& name) const {
        return server.requests().back().headers(name);
    }

    static RequestConfig with(RequestConfig config, const std::string& user, const std::string& password) {
        config.user = user;
        config.password = password;
        return config;
    }
    static RequestConfig with(RequestConfig config, CookieJar jar) {
        config.cookie_jar = jar;
        return config;
    }
    static RequestConfig with(RequestConfig config, Method method, const std::string& body) {
        config.method = method;
        config.body = body;
        return config;
    }

    Interposed interposed;
    const CookieFolder folder;
    ScriptedServer other{Family::OtherIPv4};
};

// --- who keeps a handle ---

TEST_F(InterposedHandlesTest, OneAfterTheOtherShareAHandle) {
    for (int i = 0; i < 5; ++i) outcomeOf(get());
    EXPECT_THAT(interposed.handles(), SizeIs(5));
    EXPECT_TRUE(allShareAHandle());
    EXPECT_EQ(interposed.livingHandles(), 1U);
}

TEST_F(InterposedHandlesTest, AnErrorOfTheServersIsACompleteAnswer) {
    server.enqueue(Reply(500));
    EXPECT_THAT(outcomeOf(get()), StartsWith("failure"));
    EXPECT_TRUE(nextSharesHandle());
}

TEST_F(InterposedHandlesTest, NoMoreThanSomeAreKept) {
    constexpr std::size_t many = EasyHandles::most_kept + 4;
    for (const std::size_t made : {many, many + 4}) {
        const std::size_t before = server.bodyBytesSent();
        std::vector<RecordingRequestPtr> all;
        for (std::size_t i = 0; i < many; ++i) {
            server.enqueue(Reply(200).body("half").pause().body("whole"));
            all.push_back(run(get()));
        }
        server.awaitBodyBytesSent(before + 4 * many);
        server.release(many);
        for (const auto& request : all) request->outcome.awaitCount(1);
        drain();
        const std::vector<std::size_t> handles = interposed.handles();
        EXPECT_EQ(*std::max_element(handles.begin(), handles.end()), made);
        EXPECT_EQ(interposed.livingHandles(), EasyHandles::most_kept);
    }
}

TEST_F(InterposedHandlesTest, FreshStateHasAHandleOfItsOwn) {
    outcomeOf(get());
    RequestConfig fresh = get();
    fresh.reset_state = true;
    outcomeOf(fresh);
    outcomeOf(get());
    EXPECT_NE(interposed.handles()[1], interposed.handles()[0]);
    EXPECT_EQ(interposed.handles()[2], interposed.handles()[0]);
}

TEST_F(InterposedHandlesTest, ATransferThatBreaksOffTakesItsHandleAlong) {
    const ClosedPort nobody;
    RequestConfig failing = get();
    failing.url = nobody.url();
    EXPECT_THAT(outcomeOf(failing), StartsWith("failure"));
    EXPECT_FALSE(nextSharesHandle());

    server.enqueue(Reply(200).body("body").closeInsideBody(1));
    EXPECT_THAT(outcomeOf(get()), StartsWith("failure"));
    EXPECT_FALSE(nextSharesHandle());

    server.enqueue(Reply(200).body("first").stallBeforeEnd());
    RequestConfig late = get();
    late.timeout = std::chrono::milliseconds(50);
    EXPECT_THAT(outcomeOf(late), StartsWith("failure"));
    EXPECT_FALSE(nextSharesHandle());

    RequestConfig refused = get();
    refused.headers = {{"X-Bad", "a\r\nb"}};
    EXPECT_THAT(outcomeOf(refused), StartsWith("failure"));
    EXPECT_EQ(interposed.livingHandles(), 0U) << "the kept one was taken, set up in part and freed";
}

TEST_F(InterposedHandlesTest, ACancelledTransferTakesItsHandleAlong) {
    for (const bool pauses : {false, true}) {
        server.enqueue(Reply(200).body("first").stallBeforeEnd());
        const auto cancelled = run(get());
        cancelled->hooks.await("data 5");
        if (pauses) cancelled->pauseRequest();
        drain();
        cancelled->tryToCancelRequest();
        drain();
        EXPECT_EQ(interposed.livingHandles(), 0U);
        EXPECT_FALSE(nextSharesHandle());
        EXPECT_EQ(cancelled->outcome.count(), 0U);
        fetch(with(get(), CookieJar::no_cookies));
        EXPECT_TRUE(nextSharesHandle());
        stopEngine();
        startEngine();
    }
}

TEST_F(InterposedHandlesTest, APauseIsOverWithItsTransfer) {
    server.enqueue(Reply(200).body("first").stallBeforeEnd("rest"));
    const auto paused = run(get());
    paused->hooks.await("data 5");
    paused->pauseRequest();
    drain();
    server.release();
    paused->resumeRequest();
    paused->outcome.awaitCount(1);
    drain();
    EXPECT_EQ(paused->body(), "firstrest");
    EXPECT_TRUE(nextSharesHandle());
    EXPECT_EQ(fetch(get())->body(), "body");
}

TEST_F(InterposedHandlesTest, NoneOutlivesTheEngine) {
    outcomeOf(get());
    EXPECT_EQ(interposed.livingHandles(), 1U);
    stopEngine();
    EXPECT_EQ(interposed.livingHandles(), 0U);
}

// It may set what libcurl's reset leaves alone.
TEST_F(InterposedHandlesTest, AnEngineWithTlsOptionsOfItsOwnKeepsNone) {
    class Derived : public Engine {
     public:
        Derived() : Engine([](const std::function<void()>& completion) { completion(); }) {}
        ~Derived() override { stop(); }
        void addTlsConfig(void* easy, std::shared_ptr<Request> request) override {
            Engine::addTlsConfig(easy, std::move(request));
        }
    };
    stopEngine();
    useEngine(std::make_unique<Derived>());
    outcomeOf(get());
    EXPECT_EQ(interposed.livingHandles(), 0U);
}

// --- what nobody is to see of another one ---

TEST_F(InterposedHandlesTest, CredentialsGoWithTheirRequest) {
    for (const std::string challenge : {"Basic realm=\"r\"", "Digest realm=\"r\", nonce=\"1\", qop=\"auth\""}) {
        const auto demand = [&](const ReceivedRequest& received) {
            const bool knows = received.header("Authorization").has_value();
            return knows ? Reply(200) : Reply(401).header("WWW-Authenticate", challenge);
        };
        server.onRequest(demand);
        other.onRequest(demand);
        RequestConfig elsewhere;
        elsewhere.url = other.url();
        for (const RequestConfig& next : {get("/next"), elsewhere}) {
            EXPECT_EQ(outcomeOf(with(get(), "user", "password")), "end");
            EXPECT_THAT(lastHeaders("Authorization"), SizeIs(1));
            EXPECT_THAT(outcomeOf(next), StartsWith("failure"));
            const ScriptedServer& asked = next.url == elsewhere.url ? other : server;
            EXPECT_THAT(asked.requests().back().headers("Authorization"), IsEmpty());
        }
        // Another user introduces himself from the beginning.
        const std::size_t before = server.requests().size();
        EXPECT_EQ(outcomeOf(with(get(), "another", "word")), "end");
        const auto received = server.requests();
        ASSERT_EQ(received.size(), before + 2);
        EXPECT_THAT(received[before].headers("Authorization"), IsEmpty());
        const std::string answer = received[before + 1].header("Authorization").value();
        if (challenge.front() == 'B') {
            EXPECT_EQ(answer, "Basic YW5vdGhlcjp3b3Jk");
        } else {
            EXPECT_THAT(answer, AllOf(HasSubstr("username=\"another\""), HasSubstr("nc=00000001")));
        }
    }
}

TEST_F(InterposedHandlesTest, CredentialsInAnUrlGoWithTheirRequest) {
    RequestConfig known = get();
    known.url.insert(7, "user:password@");
    EXPECT_EQ(outcomeOf(known), "end");
    EXPECT_THAT(lastHeaders("Authorization"), SizeIs(1));
    EXPECT_EQ(outcomeOf(get()), "end");
    EXPECT_THAT(lastHeaders("Authorization"), IsEmpty());
    EXPECT_TRUE(allShareAHandle());
}

TEST_F(InterposedHandlesTest, AProxyAndItsCredentialsGoWithTheirRequest) {
    CountingProxy::Options options;
    const CountingProxy proxy(options);
    other.onRequest([](const ReceivedRequest&) { return Reply(200); });
    RequestConfig behind;
    behind.url = other.url();
    engine().setProxyConfig(Engine::ProxyConfigMode::Manual, proxy.url(), "user", "password");
    EXPECT_EQ(outcomeOf(behind), "end");
    engine().setProxyConfig(Engine::ProxyConfigMode::Off, "", "", "");
    const std::size_t before = proxy.authorizations().size();
    EXPECT_EQ(outcomeOf(behind), "end");
    EXPECT_EQ(proxy.authorizations().size(), before);
    EXPECT_THAT(other.requests().back().headers("Proxy-Authorization"), IsEmpty());
    const CountingProxy strict(options);
    engine().setProxyConfig(Engine::ProxyConfigMode::Manual, strict.url(), "", "");
    EXPECT_EQ(outcomeOf(behind), "end");
    EXPECT_THAT(strict.authorizations(), Each(IsEmpty()));
    EXPECT_TRUE(allShareAHandle());
}

TEST_F(InterposedHandlesTest, CookiesStayOutOfRequestsWithoutAny) {
    server.onRequest([](const ReceivedRequest& received) {
        return Reply(200).header("Set-Cookie", received.target.substr(1) + "=value");
    });
    EXPECT_EQ(outcomeOf(get("/shared")), "end");
    for (const char* const path : {"/lonely", "/lonely"}) {
        EXPECT_EQ(outcomeOf(with(get(path), CookieJar::no_cookies)), "end");
        EXPECT_THAT(lastHeaders("Cookie"), IsEmpty());
    }
    EXPECT_EQ(outcomeOf(with(get("/saved"), CookieJar::rw_cookies)), "end");
    EXPECT_THAT(lastHeaders("Cookie"), ElementsAre("shared=value"));
    EXPECT_EQ(outcomeOf(with(get("/lonely"), CookieJar::no_cookies)), "end");
    EXPECT_THAT(lastHeaders("Cookie"), IsEmpty());
    EXPECT_EQ(outcomeOf(get("/shared")), "end");
    EXPECT_THAT(lastHeaders("Cookie"), ElementsAre(HasSubstr("saved=value")));
    EXPECT_THAT(lastHeaders("Cookie"), Each(Not(HasSubstr("lonely"))));
    EXPECT_EQ(interposed.livingHandles(), 1U);
    EXPECT_TRUE(allShareAHandle());
}

// libcurl's reset leaves it to itself whose cookies a "Host" of the program's own has asked for.
TEST_F(InterposedHandlesTest, CookiesOfAHostThatARequestNamesAreItsOwnRequestsOnly) {
    for (const char* const name : {"Host", "hOST", "Host;"}) {
        server.enqueue(Reply(200).header("Set-Cookie", "secret=value"));
        RequestConfig named = get();
        named.headers[name] = "named.test";
        EXPECT_EQ(outcomeOf(named), "end");
        EXPECT_EQ(outcomeOf(get("/next")), "end");
        EXPECT_THAT(lastHeaders("Cookie"), IsEmpty()) << name;
        EXPECT_EQ(outcomeOf(named), "end");
        EXPECT_THAT(lastHeaders("Cookie"), ElementsAre("secret=value")) << name;
        stopEngine();
        startEngine();
    }
}

// Nor does it wipe the line that it has made of an offset.
TEST_F(InterposedHandlesTest, TheRestThatARequestAsksForIsItsOwnRequestsOnly) {
    const TemporaryDirectory directory;
    RequestConfig resumed = get();
    resumed.resume = true;
    resumed.download_path = directory.path("partial");
    writeWholeFile(resumed.download_path, "01234");
    server.onRequest(
        [](const ReceivedRequest&) { return Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"); });
    EXPECT_EQ(outcomeOf(resumed), "end");
    EXPECT_THAT(lastHeaders("Range"), ElementsAre("bytes=5-"));
    resumed.headers["Range"] = "bytes=5-7";
    outcomeOf(resumed);
    EXPECT_THAT(lastHeaders("Range"), ElementsAre("bytes=5-7"));
}

TEST_F(InterposedHandlesTest, EachErrorHasItsOwnText) {
    const ClosedPort nobody;
    RequestConfig refused;
    refused.url = nobody.url();
    EXPECT_THAT(outcomeOf(refused), HasSubstr(std::to_string(nobody.port())));
    outcomeOf(get());
    RequestConfig malformed;
    malformed.url = "http://[";
    const std::string text = outcomeOf(malformed);
    EXPECT_THAT(text, Not(HasSubstr(std::to_string(nobody.port()))));
    outcomeOf(get());
    server.enqueue(Reply(200).body("body").closeInsideBody(1));
    EXPECT_THAT(outcomeOf(get()), HasSubstr("1 bytes remaining"));
    // The text of a new handle.
    stopEngine();
    startEngine();
    EXPECT_EQ(outcomeOf(malformed), text);
}

TEST_F(InterposedHandlesTest, EachRequestHasItsOwnTimes) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    RequestConfig timed = get();
    timed.timing_data = true;
    const auto slow = run(timed);
    server.awaitRequests(1);
    drain();
    server.release();
    slow->outcome.awaitCount(1);
    drain();
    ASSERT_TRUE(slow->getTimingData());
    EXPECT_GT(slow->getTimingData()->starttransfer, 0);
    // A new handle's request that ends as early has none of these.
    timed.url = "http://[";
    const auto early = fetch(timed);
    EXPECT_TRUE(allShareAHandle());
    if (early->getTimingData()) {
        EXPECT_EQ(early->getTimingData()->connect, 0);
        EXPECT_EQ(early->getTimingData()->pretransfer, 0);
        EXPECT_EQ(early->getTimingData()->starttransfer, 0);
    }
}

TEST_F(InterposedHandlesTest, EachRequestTellsItsOwnTarget) {
    server.enqueue(Reply::redirect("/target"));
    RequestConfig redirected = get();
    redirected.caller_handles_redirects = true;
    EXPECT_EQ(fetch(redirected)->getRedirectUrl(), server.url("/target"));
    redirected.url = "";
    EXPECT_EQ(fetch(redirected)->getRedirectUrl(), tl::nullopt);
    server.enqueue(Reply::redirect("/target"));
    fetch(get("/from"));
    EXPECT_EQ(fetch(get("/plain"))->getRedirectUrl(), server.url("/plain"));
    EXPECT_THAT(lastHeaders("Referer"), IsEmpty());
}

// libcurl's reset leaves it to itself what a server has said about "Expect".
TEST_F(InterposedHandlesTest, WhatOneServerCanNotDoIsNotHeldAgainstOthers) {
    RequestConfig large = with(get(), Method::DELETE, std::string(1500000, 'x'));
    for (const bool follows : {true, false}) {
        large.caller_handles_redirects = !follows;
        EXPECT_EQ(outcomeOf(large), "end");
        EXPECT_THAT(lastHeaders("Expect"), ElementsAre("100-continue"));
        server.enqueue(Reply(417).answerBeforeBody());
        outcomeOf(large);
        EXPECT_THAT(lastHeaders("Expect"), IsEmpty());
        EXPECT_EQ(outcomeOf(large), "end");
        EXPECT_THAT(lastHeaders("Expect"), ElementsAre("100-continue"));
    }
}

TEST_F(InterposedHandlesTest, AnOldServersVersionIsNotHeldAgainstOthers) {
    const RequestConfig large = with(get(), Method::DELETE, std::string(1500000, 'x'));
    server.enqueue(Reply(200).version("HTTP/1.0").closeAfterwards());
    EXPECT_EQ(outcomeOf(get()), "end");
    EXPECT_EQ(outcomeOf(large), "end");
    EXPECT_EQ(server.requests().back().version, "HTTP/1.1");
    EXPECT_THAT(lastHeaders("Expect"), ElementsAre("100-continue"));
    EXPECT_TRUE(allShareAHandle());
}

TEST_F(InterposedHandlesTest, ATransferOfSeveralRequestsTakesItsHandleAlong) {
    server.enqueue(Reply::redirect("/target"));
    EXPECT_EQ(outcomeOf(get()), "end");
    EXPECT_EQ(interposed.livingHandles(), 0U);
    server.enqueue(Reply(401).header("WWW-Authenticate", "Digest realm=\"r\", nonce=\"1\", qop=\"auth\""));
    EXPECT_EQ(outcomeOf(with(get(), "user", "password")), "end");
    EXPECT_EQ(interposed.livingHandles(), 0U);
}

}  // namespace
}  // namespace kel::http::test
