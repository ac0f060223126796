// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <thread>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "support/ClosedPort.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// The lines of a real client, from the start of a request to its end.
class RequestLogTest : public ClientTest {
 protected:
    RequestLogTest() {
        executor.run([this] { tag_ = std::hash<std::thread::id>{}(std::this_thread::get_id()); });
    }

    // The begin of the lines of request `id`, whose thread is the executor's.
    std::string tagged(Client::RequestId id, const std::string& rest) const {
        return "[tid=" + std::to_string(tag_) + "]HTTP(" + std::to_string(id) + ")" + rest;
    }

    static LogFilter withMode(LogFilter::Mode mode) {
        LogFilter filter;
        filter.mode = mode;
        return filter;
    }

    static Reply jsonReply(int status) {
        return Reply(status).header("Content-Type", "application/json").body("{\"a\":1}");
    }

    static constexpr LogFilter::Mode Silent = LogFilter::Mode::silent;

 private:
    std::size_t tag_ = 0;
};

TEST_F(RequestLogTest, ARequestAndItsResponseAreLogged) {
    server.enqueue(jsonReply(200).header("Retry-After", "5").header("Set-Cookie", "secret"));
    const LogCapture log("TestClient", 4);
    fetch(get("/path"));
    EXPECT_THAT(log.texts(),
                ElementsAre(tagged(1, " => 2 " + server.url("/path")), tagged(1, " <= 200"), " Retry-After: 5"));
    for (const CapturedLine& line : log.lines()) EXPECT_EQ(line.level, 4);
}

TEST_F(RequestLogTest, TheBodyOfAnErrorStatusIsLoggedInModeZero) {
    server.enqueue(jsonReply(404));
    const LogCapture log("TestClient", 4);
    fetch(get());
    EXPECT_THAT(log.texts(), ElementsAre(tagged(1, " => 2 " + server.url()), tagged(1, " <= 404"), " Body: {\"a\":1}"));
}

TEST_F(RequestLogTest, TheRequestIsLoggedWithinItsStart) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    const LogCapture log("TestClient", 4);
    executor.run([&] {
        client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        EXPECT_THAT(log.texts(), ElementsAre(tagged(1, " => 2 " + server.url())));
    });
    server.release();
    recorder.awaitCount(1);
}

TEST_F(RequestLogTest, TheOutcomeIsLoggedBeforeItsCallback) {
    server.enqueue(Reply(200).closeBeforeHeaders());
    server.enqueue(Reply(200));
    const LogCapture log("TestClient", 4);
    EventLog events;
    const auto note_last_line = [&](Client::RequestId, const auto&) { events.add(log.texts().back()); };
    executor.run([&] { client->start_request(get(), {}, note_last_line, note_last_line); });
    events.awaitCount(1);
    executor.run([&] { client->start_request(get(), {}, note_last_line, note_last_line); });
    events.awaitCount(2);
    EXPECT_THAT(events.events(), ElementsAre(tagged(1, " Error: 2 (Empty reply from server)"), tagged(2, " <= 200")));
}

TEST_F(RequestLogTest, AnErrorIsLoggedAtLevelOneWithItsNumber) {
    const ClosedPort nobody;
    RequestConfig config;
    config.url = nobody.url();
    const LogCapture log("TestClient", 1);
    const std::string message = fetch(config).error->message;
    ASSERT_THAT(log.lines(), SizeIs(1));
    EXPECT_EQ(log.lines()[0].level, 1);
    EXPECT_EQ(log.lines()[0].text, tagged(1, " Error: 5 (" + message + ")"));
}

TEST_F(RequestLogTest, ACancellationIsLoggedOnce) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    const Client::RequestId id = start(get());
    const LogCapture log("TestClient", 4);
    cancel(id);
    cancel(id);
    EXPECT_THAT(log.texts(), ElementsAre(tagged(id, " Cancelling")));
}

TEST_F(RequestLogTest, ADroppedDeliveryIsNotLogged) {
    server.enqueue(Reply(200));
    const LogCapture log("TestClient", 9);
    executor.run([this] {
        const auto id = client->start_request(get(), {}, recorder.onResponse(), recorder.onError());
        executor.awaitTag(4035);
        client->cancel_request(id);
    });
    drain();
    EXPECT_THAT(log.texts(), ElementsAre(tagged(1, " => 2 " + server.url()), tagged(1, " Cancelling")));
}

TEST_F(RequestLogTest, InSilentModeNothingIsLoggedWhateverHappens) {
    const TemporaryDirectory directory;
    const ClosedPort nobody;
    RequestConfig refused;
    refused.url = nobody.url();
    server.enqueue(jsonReply(200));
    server.enqueue(jsonReply(404));
    server.enqueue(Reply(200).stallBeforeHeaders());
    const LogCapture log("TestClient", 9);
    recorder.await(start(get(), withMode(Silent)));
    recorder.await(startDownload(get(), directory.path("f"), withMode(Silent)));
    recorder.await(start(refused, withMode(Silent)));
    cancel(start(get(), withMode(Silent)));
    drain();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RequestLogTest, TheFilterIsKeptUntilTheResponse) {
    server.enqueue(jsonReply(404).header("Location", "/secret"));
    const LogCapture log("TestClient", 4);
    {
        LogFilter filter;
        filter.url_filter = [](const std::string&) { return "URL"; };
        filter.response_body_filter = [](const std::string& body) { return "filtered " + body; };
        filter.header_filter = [](const HeaderMap& headers) {
            HeaderMap shown = headers;
            if (shown.count("Location") != 0) shown["Location"] = "HIDDEN";
            return shown;
        };
        recorder.await(start(get(), filter));
    }
    EXPECT_THAT(log.texts(), ElementsAre(tagged(1, " => 2 URL"), tagged(1, " <= 404"), " Location: HIDDEN",
                                         " Body: filtered {\"a\":1}"));
}

TEST_F(RequestLogTest, ADownloadIsLoggedWithoutItsBytes) {
    const TemporaryDirectory directory;
    server.enqueue(jsonReply(404));
    const LogCapture log("TestClient", 9);
    const Client::RequestId id = startDownload(get(), directory.path("f"));
    recorder.await(id);
    EXPECT_THAT(log.texts(), ElementsAre(tagged(id, " => 2 " + server.url()), tagged(id, " <= 404"), " Body: "));
}

TEST_F(RequestLogTest, EachClientWritesToItsOwnLogger) {
    useLogger("OtherClient");
    server.enqueue(Reply(200));
    const LogCapture log(4);
    fetch(get());
    EXPECT_THAT(log.texts("TestClient"), IsEmpty());
    EXPECT_THAT(log.texts("OtherClient"), SizeIs(2));
}

}  // namespace
}  // namespace kel::http::test
