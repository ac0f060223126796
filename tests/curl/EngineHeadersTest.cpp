// SPDX-License-Identifier: MIT
#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class EngineHeadersTest : public EngineTest {
 protected:
    EngineHeadersTest() {
        startEngine();
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    }

    ReceivedRequest received(const RequestConfig& config) {
        run(config)->outcome.await("end");
        return server.requests().back();
    }

    std::string failureOf(const RequestConfig& config) {
        const auto request = run(config);
        request->outcome.awaitCount(1);
        EXPECT_EQ(request->getResponseCode(), 0U);
        return request->outcome.events().at(0);
    }
};

TEST_F(EngineHeadersTest, PlainGetCarriesTheDefaultsAndNothingElse) {
    RequestConfig config = get("/path?query");
    config.headers.clear();
    const ReceivedRequest request = received(config);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/path?query");
    EXPECT_EQ(request.version, "HTTP/1.1");
    EXPECT_THAT(request.header_lines,
                ElementsAre("Host: " + server.authority(), "Accept: */*",
                            "User-Agent: Tervo/kel-http-default (id=noversion)", "Accept-Charset: ISO-8859-1,utf-8"));
}

TEST_F(EngineHeadersTest, DefaultContentTypeIsSentLikeAnyOther) {
    EXPECT_THAT(received(get()).headers("Content-Type"), ElementsAre("text/xml; charset=utf-8"));
}

TEST_F(EngineHeadersTest, CallersUserAgentIsSentAsSpelled) {
    RequestConfig config = get();
    config.headers["user-AGENT"] = "mine/1";
    const ReceivedRequest request = received(config);
    EXPECT_THAT(request.header_lines, Contains("user-AGENT: mine/1"));
    EXPECT_THAT(request.headers("User-Agent"), ElementsAre("mine/1"));
}

TEST_F(EngineHeadersTest, AcceptCharsetIsSentBesideTheCallersOwn) {
    RequestConfig config = get();
    config.headers["accept-charset"] = "utf-8";
    EXPECT_THAT(received(config).headers("Accept-Charset"), ElementsAre("utf-8", "ISO-8859-1,utf-8"));
}

TEST_F(EngineHeadersTest, EmptyValueSuppressesAHeader) {
    RequestConfig config = get();
    config.headers["Accept"] = "";
    config.headers["User-Agent"] = "";
    config.headers["Content-Type"] = "";
    config.headers["X-Empty"] = "";
    const ReceivedRequest request = received(config);
    EXPECT_THAT(request.header_lines, ElementsAre("Host: " + server.authority(), "Accept-Charset: ISO-8859-1,utf-8"));
}

TEST_F(EngineHeadersTest, LargePostAndPutDoNotExpectAContinue) {
    for (const Method method : {Method::POST, Method::PUT}) {
        RequestConfig config = get();
        config.method = method;
        config.body.assign(2U << 20U, 'x');
        EXPECT_THAT(received(config).headers("Expect"), IsEmpty());
    }
}

TEST_F(EngineHeadersTest, LargeDeleteAndPatchExpectAContinue) {
    for (const Method method : {Method::DELETE, Method::PATCH}) {
        RequestConfig config = get();
        config.method = method;
        config.body.assign(2U << 20U, 'x');
        EXPECT_THAT(received(config).headers("Expect"), ElementsAre("100-continue"));
    }
}

TEST_F(EngineHeadersTest, LineBreakInAValueFailsTheRequestAndIsNotSent) {
    for (const std::string& value :
         {std::string("token\n"), std::string("a\r\nX-Evil: secret"), std::string("a\0b", 3)}) {
        RequestConfig config = get();
        config.headers["X-Token"] = value;
        EXPECT_EQ(failureOf(config),
                  "failure 2: The value of request header 'X-Token' holds a line break or a zero byte: remove it");
    }
    drain();
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(EngineHeadersTest, LineBreakInANameOrNoNameFailsTheRequest) {
    RequestConfig config = get();
    config.headers["X-Evil: secret\r\nX-Name"] = "value";
    EXPECT_EQ(failureOf(config),
              "failure 2: The name of request header 'X-Evil' holds a line break or a zero byte: remove it");
    config = get();
    config.headers[""] = "secret";
    EXPECT_EQ(failureOf(config), "failure 2: A request header has an empty name: remove it or name it");
}

TEST_F(EngineHeadersTest, FaultyHeadersValueIsNeverLogged) {
    const LogCapture log(9);
    RequestConfig config = get();
    config.headers["Authorization"] = "Bearer secret\n";
    const std::string text = failureOf(config);
    EXPECT_THAT(text, AllOf(HasSubstr("'Authorization'"), Not(HasSubstr("secret"))));
    EXPECT_THAT(log.all(), AllOf(HasSubstr("The request can not be sent: The value of request header 'Authorization'"),
                                 Not(HasSubstr("secret"))));
}

TEST_F(EngineHeadersTest, RequestThatCanNotBeSetUpLeavesNothingBehind) {
    RequestConfig config = get();
    config.headers["X"] = "\n";
    auto failed = run(config);
    const std::weak_ptr<RecordingRequest> watch = failed;
    failed->outcome.awaitCount(1);
    drain();
    failed.reset();
    EXPECT_TRUE(watch.expired());
    received(get());
}

}  // namespace
}  // namespace kel::http::test
