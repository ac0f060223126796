// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "fixture/ClientTest.h"
#include "fixture/EngineHold.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::Pair;

class ResponseTest : public ClientTest {
 protected:
    ResponseData response(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        if (outcome.response) return *outcome.response;
        ADD_FAILURE() << outcome.error->message;
        return {0, {}, {}};
    }

    ResponseData responseTo(const Reply& reply) {
        server.enqueue(reply);
        return response(get());
    }
};

// --- statuses ---

TEST_F(ResponseTest, EveryStatusIsAResponseWithItsBody) {
    for (const int status : {200, 201, 299, 300, 400, 401, 403, 404, 407, 500, 503, 599}) {
        const ResponseData data = responseTo(Reply(status).body("the body"));
        EXPECT_EQ(data.status, status);
        EXPECT_EQ(data.body, "the body");
    }
}

TEST_F(ResponseTest, AnswersWithoutABodyHaveAnEmptyOne) {
    for (const int status : {200, 204, 304, 404}) {
        const ResponseData data = responseTo(Reply(status));
        EXPECT_EQ(data.status, status);
        EXPECT_EQ(data.body, "");
    }
}

// --- bodies ---

TEST_F(ResponseTest, ABodyMayHoldAnyByte) {
    std::string bytes;
    for (int n = 0; n < 1024; ++n) bytes.push_back(static_cast<char>(n & 0xFF));
    EXPECT_EQ(responseTo(Reply(200).body(bytes)).body, bytes);
}

// What the callback gets, and not a copy of it.
TEST_F(ResponseTest, ABodyHasJustTheRoomThatWasAnnounced) {
    const std::string text(300'000, 'x');
    server.enqueue(Reply(200).body(text));
    std::size_t room = 0;
    executor.run([&] {
        client->start_request(
            get(), {},
            [&](Client::RequestId id, const ResponseData& data) {
                room = data.body.capacity();
                recorder.onResponse()(id, data);
            },
            recorder.onError());
    });
    recorder.awaitCount(1);
    EXPECT_EQ(room, text.size());
    EXPECT_EQ(recorder.outcomes().front().response->body, text);
}

// --- bodies whose size is not known, or not true ---

TEST_F(ResponseTest, ABodyComesTogetherFromItsPieces) {
    EXPECT_EQ(responseTo(Reply(200).chunked().body("one ").body("two ").body("three")).body, "one two three");
    EXPECT_EQ(responseTo(Reply(200).untilClose().body("to the end")).body, "to the end");
    const std::string large(3 << 20, 'x');
    EXPECT_TRUE(responseTo(Reply(200).body(large)).body == large);
}

// --- headers ---

TEST_F(ResponseTest, HeaderNamesAreFoundInAnyLetterCaseAndKeptAsSent) {
    const ResponseData data = responseTo(Reply(200).header("X-aNSWER", " forty  two\t"));
    EXPECT_EQ(data.headers.at("x-answer"), "forty  two");
    EXPECT_EQ(data.headers.find("X-ANSWER")->first, "X-aNSWER");
}

TEST_F(ResponseTest, OfRepeatedHeadersTheFirstOneStays) {
    const ResponseData data = responseTo(Reply(200)
                                             .header("Set-Cookie", "a=1")
                                             .header("set-cookie", "b=2")
                                             .header("X-Empty", "")
                                             .header("X-EMPTY", "3"));
    EXPECT_EQ(data.headers.at("Set-Cookie"), "a=1");
    EXPECT_EQ(data.headers.at("X-Empty"), "");
}

TEST_F(ResponseTest, LinesThatAreNoHeadersAreIgnored) {
    const ResponseData data =
        responseTo(Reply::raw("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nUnix: line\n: no name\r\nGood: one\r\n\r\nhi"));
    EXPECT_THAT(data.headers, testing::UnorderedElementsAre(Pair("Content-Length", "2"), Pair("Good", "one")));
    EXPECT_EQ(data.body, "hi");
}

TEST_F(ResponseTest, HeadersMayEndWithLineFeedsAlone) {
    const ResponseData data = responseTo(Reply::raw("HTTP/1.1 200 OK\nContent-Length: 2\n\nhi"));
    EXPECT_EQ(data.status, 200);
    EXPECT_EQ(data.body, "hi");
    EXPECT_THAT(data.headers, IsEmpty());
}

TEST_F(ResponseTest, TrailersAreHeadersToo) {
    const ResponseData data = responseTo(Reply(200).chunked().body("text").trailer("X-Sum: 42"));
    EXPECT_EQ(data.headers.at("X-Sum"), "42");
    EXPECT_EQ(data.body, "text");
}

TEST_F(ResponseTest, HeadersOfInterimAnswersComeFirst) {
    const ResponseData data = responseTo(
        Reply(200).interim(103, {"Link: </style>", "X-Answer: interim"}).header("X-Answer", "final").body("text"));
    EXPECT_EQ(data.status, 200);
    EXPECT_EQ(data.headers.at("Link"), "</style>");
    EXPECT_EQ(data.headers.at("X-Answer"), "interim");
}

TEST_F(ResponseTest, AnExpectedContinueIsNoAnswer) {
    RequestConfig config = get();
    config.method = Method::POST;
    config.headers["Expect"] = "100-continue";
    config.body = "sent";
    server.enqueue(Reply(200).body("received"));
    EXPECT_EQ(response(config).body, "received");
    EXPECT_EQ(server.requests().at(0).body, "sent");
}

// Resumed and paused again at once, libcurl reads on, holds the lines back, and hands them over in one piece
// afterwards.
TEST_F(ResponseTest, HeadersHeldBackByAPauseArriveOneByOne) {
    server.enqueue(Reply(200).header("X-First", "1").header("X-Second", "2").stallBeforeHeaders().body("text"));
    const Client::RequestId id = start(get());
    server.awaitRequests(1);
    pause(id);
    server.release();
    server.awaitBodyBytesSent(4);
    drain();
    {
        const EngineHold hold(engine());
        resume(id);
        pause(id);
    }
    drain();
    resume(id);
    const Recorder::Outcome outcome = recorder.await(id);
    ASSERT_TRUE(outcome.response.has_value()) << outcome.error->message;
    EXPECT_THAT(outcome.response->headers, testing::UnorderedElementsAre(Pair("X-First", "1"), Pair("X-Second", "2"),
                                                                         Pair("Content-Length", "4")));
    EXPECT_EQ(outcome.response->body, "text");
}

// --- redirects ---

TEST_F(ResponseTest, AcrossRedirectsTheFirstAnswersHeadersStay) {
    server.enqueue(Reply::redirect("/next").header("Content-Type", "first/type").body("see there"));
    server.enqueue(Reply(200).header("Content-Type", "second/type").header("X-Last", "yes").body("arrived"));
    const ResponseData data = response(get("/begin"));
    EXPECT_EQ(data.status, 200);
    EXPECT_EQ(data.body, "arrived");
    EXPECT_EQ(data.headers.at("Content-Type"), "first/type");
    EXPECT_EQ(data.headers.at("Location"), "/next");
    EXPECT_EQ(data.headers.at("X-Last"), "yes");
    EXPECT_EQ(data.redirect_url, server.url("/next"));
    EXPECT_EQ(data.redirect_count, 1);
}

TEST_F(ResponseTest, WithoutARedirectTheUrlThatAnsweredIsTold) {
    server.enqueue(Reply(200));
    const ResponseData data = response(get("/here"));
    EXPECT_EQ(data.redirect_url, server.url("/here"));
    EXPECT_EQ(data.redirect_count, 1);
}

TEST_F(ResponseTest, ARedirectThatTheCallerHandlesIsAResponse) {
    server.enqueue(Reply::redirect("/next").body("see there"));
    RequestConfig config = get("/begin");
    config.caller_handles_redirects = true;
    const ResponseData data = response(config);
    EXPECT_EQ(data.status, 302);
    EXPECT_EQ(data.body, "see there");
    EXPECT_EQ(data.redirect_url, server.url("/next"));
}

TEST_F(ResponseTest, NoRedirectForTheCallerIsNoUrl) {
    server.enqueue(Reply(200));
    RequestConfig config = get();
    config.caller_handles_redirects = true;
    EXPECT_FALSE(response(config).redirect_url.has_value());
}

// --- authentication ---

TEST_F(ResponseTest, HeadersOfAnAuthenticationRoundComeFirst) {
    server.enqueue(
        Reply(401).header("WWW-Authenticate", "Basic realm=\"r\"").header("X-Round", "first").body("who are you"));
    server.enqueue(Reply(200).header("X-Round", "second").body("welcome"));
    RequestConfig config = get();
    config.user = "user";
    config.password = "password";
    const ResponseData data = response(config);
    EXPECT_EQ(data.status, 200);
    EXPECT_EQ(data.body, "welcome");
    EXPECT_EQ(data.headers.at("X-Round"), "first");
    EXPECT_THAT(data.headers, Contains(Key("WWW-Authenticate")));
}

TEST_F(ResponseTest, RefusedCredentialsAreAResponse) {
    server.onRequest([](const ReceivedRequest&) {
        return Reply(401).header("WWW-Authenticate", "Basic realm=\"r\"").body("who are you");
    });
    RequestConfig config = get();
    config.user = "user";
    config.password = "wrong";
    const ResponseData data = response(config);
    EXPECT_EQ(data.status, 401);
    EXPECT_EQ(data.body, "who are you");
}

// --- figures ---

TEST_F(ResponseTest, TimingDataComesOnDemand) {
    EXPECT_FALSE(responseTo(Reply(200)).timing_data.has_value());
    RequestConfig config = get();
    config.timing_data = true;
    server.enqueue(Reply(200));
    const ResponseData data = response(config);
    ASSERT_TRUE(data.timing_data.has_value());
    EXPECT_GT(data.timing_data->total, 0);
}

// --- a real server ---

TEST_F(ResponseTest, ARealServersAnswersArrive) {
    const NginxServer nginx;
    RequestConfig config;
    config.url = nginx.url("/redirect/3");
    EXPECT_EQ(response(config).body, "arrived");
    config.url = nginx.url("/status/503");
    EXPECT_EQ(response(config).status, 503);
    config.url = nginx.url("/status/204");
    EXPECT_EQ(response(config).body, "");
    config.url = nginx.url("/headers");
    const ResponseData data = response(config);
    EXPECT_EQ(data.headers.at("X-Colons"), "a:b: c");
    EXPECT_EQ(data.headers.at("X-Empty"), "");
    config.url = nginx.url("/auth/secret");
    EXPECT_EQ(response(config).status, 401);
    config.user = NginxServer::AuthUser;
    config.password = NginxServer::AuthPassword;
    EXPECT_EQ(response(config).status, 200);
}

}  // namespace
}  // namespace kel::http::test
