// SPDX-License-Identifier: MIT
#include <curl/curl.h>
#include <gmock/gmock.h>

#include "fixture/ClientTest.h"
#include "support/ClosedPort.h"
#include "support/SilentListener.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class FailureTest : public ClientTest {
 protected:
    ErrorData error(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        if (outcome.error) return *outcome.error;
        ADD_FAILURE() << "a response: " << outcome.response->status;
        return {ClientFailure::Other, {}};
    }

    ErrorData errorOf(const Reply& reply) {
        server.enqueue(reply);
        return error(get());
    }

    static RequestConfig to(const std::string& url) {
        RequestConfig config;
        config.url = url;
        return config;
    }

    static void expect(const ErrorData& told, ClientFailure failure, const std::string& text_part) {
        EXPECT_EQ(told.failure, failure) << told.message;
        EXPECT_THAT(told.message, HasSubstr(text_part));
    }
};

// --- before a connection ---

TEST_F(FailureTest, AnUrlThatCanNotBeUsed) {
    expect(error(to("ftp://127.0.0.1/file")), ClientFailure::InvalidUrl, "ftp");
    expect(error(to("http://")), ClientFailure::InvalidUrl, "");
    expect(error(to("")), ClientFailure::InvalidUrl, "");
}

TEST_F(FailureTest, AHostThatIsNotFound) {
    expect(error(to("http://host.onion/")), ClientFailure::ResolveFailed, "resolv");
}

TEST_F(FailureTest, AServerThatRefusesTheConnection) {
    const ClosedPort nobody;
    expect(error(to(nobody.url())), ClientFailure::ConnectFailed, "Failed to connect to 127.0.0.1");
}

TEST_F(FailureTest, AServerThatCanNotBeReachedInTime) {
    const SilentListener nobody(SilentListener::Connects::Hang);
    RequestConfig config = to(nobody.url());
    config.timeout = std::chrono::milliseconds(50);
    expect(error(config), ClientFailure::Timeout, "timed out");
}

TEST_F(FailureTest, AHeaderThatMustNotBeSentIsNamedWithoutItsValue) {
    RequestConfig config = get();
    config.headers["X-Token"] = "secret\n";
    const ErrorData told = error(config);
    expect(told, ClientFailure::Other, "X-Token");
    EXPECT_THAT(told.message, Not(HasSubstr("secret")));
}

// --- in the headers ---

TEST_F(FailureTest, ATimeOutBeforeTheHeaders) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(50);
    expect(error(config), ClientFailure::Timeout, "timed out");
}

TEST_F(FailureTest, AConnectionClosedBeforeTheHeaders) {
    expect(errorOf(Reply(200).closeBeforeHeaders()), ClientFailure::Other, "Empty reply from server");
}

TEST_F(FailureTest, AConnectionResetBeforeTheHeaders) {
    expect(errorOf(Reply(200).resetBeforeHeaders()), ClientFailure::Other, "");
}

TEST_F(FailureTest, AConnectionClosedInsideTheHeaders) {
    const std::string text = "Connection closed inside the response headers";
    for (const int status : {200, 401, 404, 503}) {
        const ErrorData told = errorOf(Reply(status).closeInsideHeaders());
        EXPECT_EQ(told.failure, ClientFailure::Other);
        EXPECT_EQ(told.message, text) << status;
    }
}

TEST_F(FailureTest, AConnectionClosedInsideTheHeadersBehindAnInterimAnswer) {
    const ErrorData told = errorOf(Reply(200).interim(103, {"Link: </style>"}).closeInsideHeaders());
    EXPECT_EQ(told.message, "Connection closed inside the response headers");
}

TEST_F(FailureTest, AConnectionClosedInsideTheHeadersBehindARedirect) {
    server.enqueue(Reply::redirect("/next"));
    server.enqueue(Reply(200).closeInsideHeaders());
    EXPECT_EQ(error(get()).message, "Connection closed inside the response headers");
}

TEST_F(FailureTest, AConnectionClosedBehindAnInterimAnswer) {
    const ErrorData told = errorOf(Reply::raw("HTTP/1.1 103 Early Hints\r\n\r\n").closeAfterwards());
    EXPECT_EQ(told.failure, ClientFailure::Other);
}

TEST_F(FailureTest, AConnectionClosedInsideAStatusLine) {
    const ErrorData told = errorOf(Reply::raw("HTTP/1.1 20").closeAfterwards());
    EXPECT_EQ(told.failure, ClientFailure::Other);
}

TEST_F(FailureTest, AStatusThatHttpDoesNotKnow) {
    for (const int status : {600, 999}) {
        const ErrorData told = errorOf(Reply(status).body("text"));
        EXPECT_EQ(told.failure, ClientFailure::Other);
        EXPECT_EQ(told.message, "HTTP code=0");
    }
}

// --- in the body: the status is known, but the answer is not whole ---

TEST_F(FailureTest, ATimeOutInsideTheBody) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(100);
    expect(error(config), ClientFailure::Timeout, "timed out");
}

TEST_F(FailureTest, ABodyThatIsCutShort) {
    const ErrorData told = errorOf(Reply(200).body(std::string(1000, 'x')).closeInsideBody(100));
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_EQ(told.message, "transfer closed with 100 bytes remaining to read");
}

TEST_F(FailureTest, AnErrorPageThatIsCutShort) {
    expect(errorOf(Reply(404).body(std::string(1000, 'x')).closeInsideBody(100)), ClientFailure::Other, "");
}

TEST_F(FailureTest, AConnectionResetInsideTheBody) {
    expect(errorOf(Reply(200).body(std::string(1000, 'x')).resetInsideBody(100)), ClientFailure::Other, "");
}

// --- the size limit ---

TEST_F(FailureTest, ABodyBeyondTheLimitWhoseSizeWasNotAnnounced) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).chunked().body("123456").body("7890").body("x"));
    const ErrorData told = error(config);
    EXPECT_EQ(told.failure, ClientFailure::WriteFailed);
    EXPECT_EQ(told.message, curl_easy_strerror(CURLE_WRITE_ERROR));
}

TEST_F(FailureTest, ABodyBeyondTheLimitWhoseSizeWasAnnounced) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).body("12345678901"));
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
}

TEST_F(FailureTest, ABodyOfExactlyTheLimitIsNone) {
    RequestConfig config = get();
    config.size_limit = 10U;
    server.enqueue(Reply(200).body("1234567890"));
    server.enqueue(Reply(200).chunked().body("123456").body("7890"));
    EXPECT_EQ(fetch(config).response->body, "1234567890");
    EXPECT_EQ(fetch(config).response->body, "1234567890");
}

TEST_F(FailureTest, ALimitOfNothingRefusesTheFirstByteButNoEmptyBody) {
    RequestConfig config = get();
    config.size_limit = 0U;
    server.enqueue(Reply(200).body("1"));
    server.enqueue(Reply(204));
    EXPECT_EQ(error(config).failure, ClientFailure::WriteFailed);
    EXPECT_EQ(fetch(config).response->status, 204);
}

TEST_F(FailureTest, AnAnnouncedBodyBeyondTheLimitThatNobodyWouldGet) {
    RequestConfig config = get();
    config.size_limit = 10U;
    config.user = "user";
    server.enqueue(Reply::redirect("/next").body("see over there"));
    expect(error(config), ClientFailure::Other, "Maximum file size exceeded");
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"r\"").body("who are you"));
    expect(error(config), ClientFailure::Other, "Maximum file size exceeded");
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(FailureTest, ABodyThatNobodyGetsIsNoneWhereItsSizeIsNotAnnounced) {
    RequestConfig config = get();
    config.size_limit = 10U;
    config.user = "user";
    server.enqueue(Reply::redirect("/next").chunked().body("see over there"));
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"r\"").chunked().body("who are you"));
    server.enqueue(Reply(200).body("welcome"));
    EXPECT_EQ(fetch(config).response->body, "welcome");
}

// Asks for bodies that are packed; libcurl unpacks them.
class UnpackingEngine : public Engine {
 public:
    UnpackingEngine() : Engine([](const std::function<void()>& completion) { completion(); }) {}
    ~UnpackingEngine() override { stop(); }

    void addTlsConfig(void* easy, std::shared_ptr<Request> request) override {
        Engine::addTlsConfig(easy, std::move(request));
        curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip");
    }
};

TEST_F(FailureTest, ABodyBeyondTheLimitAfterItWasUnpacked) {
    stopEngine();
    useEngine(std::make_unique<UnpackingEngine>());
    const std::string packed(
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\xff\xab\xa8\x18\x05\xa3\x60\x14\x0c\x77\x00\x00\xe6\xc9\x41\x3b\xe8\x03"
        "\x00\x00",
        29);
    RequestConfig config = get();
    config.size_limit = 1000U;
    server.enqueue(Reply(200).header("Content-Encoding", "gzip").body(packed));
    EXPECT_EQ(fetch(config).response->body, std::string(1000, 'x'));
    config.size_limit = 999U;
    server.enqueue(Reply(200).header("Content-Encoding", "gzip").body(packed));
    EXPECT_EQ(error(config).failure, ClientFailure::WriteFailed);
    stopEngine();
}

}  // namespace
}  // namespace kel::http::test
