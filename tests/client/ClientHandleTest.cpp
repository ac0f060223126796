// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <optional>
#include <utility>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Events = std::vector<std::string>;

static_assert(std::is_same_v<Client::Handle, ko::AsyncActionHandle<kel::http::KelHttpClientTag>>);
static_assert(std::is_same_v<Client::Handle, ko::AsyncActionHandle<::KelHttpClientTag>>);

// --- the convenience calls by themselves, above a client that does nothing ---

// Gives out the id 5 and notes what it is asked.
class NotingClient : public Client {
 public:
    using Client::start_download;
    using Client::start_request;

    RequestId start_request(const RequestConfig& config, const LogFilter& filter, const ResponseCallback& response_cb,
                            const ErrorCallback& error_cb) override {
        return note("request " + config.url, filter, response_cb, error_cb, {});
    }
    RequestId start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                             const ResponseCallback& response_cb, const ErrorCallback& error_cb,
                             const ProgressCallback& progress_cb) override {
        return note("download " + config.url + " to " + path, filter, response_cb, error_cb, progress_cb);
    }
    void pause_request(RequestId id) override { events.push_back("pause " + std::to_string(id)); }
    void resume_request(RequestId id) override { events.push_back("resume " + std::to_string(id)); }
    void cancel_request(RequestId id) override { events.push_back("cancel " + std::to_string(id)); }
    RequestId allocate_request_id() override { return NoRequestId; }

    Events events;
    ResponseCallback respond;
    ErrorCallback fail;
    ProgressCallback report;

 private:
    RequestId note(const std::string& event, const LogFilter& filter, const ResponseCallback& response_cb,
                   const ErrorCallback& error_cb, const ProgressCallback& progress_cb) {
        events.push_back(event + " in mode " + std::to_string(static_cast<unsigned>(filter.mode)));
        respond = response_cb;
        fail = error_cb;
        report = progress_cb;
        return 5;
    }
};

class ClientHandleTest : public testing::Test {
 protected:
    ClientHandleTest() {
        config.url = "url";
        filter.mode = LogFilter::Mode::all_payload;
    }

    Client::Handle start() { return client.start_request(config, filter, onResponse, onError); }
    Client::Handle startDownload() {
        return client.start_download(config, "path", filter, onResponse, onError,
                                     [this](const ProgressData& data) { note("progress", data.received); });
    }

    // What the client is told by its engine.
    void respond() { client.respond(5, ResponseData(200, {}, {})); }
    void fail() { client.fail(5, ErrorData{ClientFailure::Timeout, {}}); }
    void report(std::uint32_t bytes) { client.report(5, ProgressData{5, {}, 100, bytes}); }

    NotingClient client;
    RequestConfig config;
    LogFilter filter;
    Events heard;

 private:
    template <typename Number>
    void note(const std::string& what, Number number) {
        heard.push_back(what + " " + std::to_string(static_cast<int>(number)));
    }

    const std::function<void(const ResponseData&)> onResponse = [this](const ResponseData& data) {
        note("response", data.status);
    };
    const std::function<void(const ErrorData&)> onError = [this](const ErrorData& data) {
        note("error", data.failure);
    };
};

TEST_F(ClientHandleTest, CallsAndCallbacksArePassedOn) {
    const Client::Handle handle = start();
    EXPECT_THAT(client.events, ElementsAre("request url in mode 2"));
    EXPECT_FALSE(client.report);
    EXPECT_TRUE(handle.active());
    respond();
    EXPECT_THAT(heard, ElementsAre("response 200"));
    EXPECT_FALSE(handle.active());
}

TEST_F(ClientHandleTest, ADownloadIsPassedOnWithItsProgress) {
    const Client::Handle handle = startDownload();
    EXPECT_THAT(client.events, ElementsAre("download url to path in mode 2"));
    report(1);
    report(2);
    fail();
    EXPECT_THAT(heard, ElementsAre("progress 1", "progress 2", "error 3"));
}

TEST_F(ClientHandleTest, OfResponseAndErrorOnlyTheFirstComes) {
    const Client::Handle one = start();
    respond();
    fail();
    respond();
    EXPECT_THAT(heard, ElementsAre("response 200"));
    heard.clear();
    const Client::Handle other = start();
    fail();
    respond();
    EXPECT_THAT(heard, ElementsAre("error 3"));
}

TEST_F(ClientHandleTest, ProgressBehindTheOutcomeIsDropped) {
    const Client::Handle handle = startDownload();
    respond();
    report(1);
    EXPECT_THAT(heard, ElementsAre("response 200"));
}

TEST_F(ClientHandleTest, AnEmptyProgressCallbackIsAllowed) {
    const auto handle = client.start_download(
        config, "path", filter, [](const ResponseData&) {}, [](const ErrorData&) {},
        std::function<void(const ProgressData&)>());
    ASSERT_TRUE(client.report);
    report(1);
}

TEST_F(ClientHandleTest, DroppingTheHandleDropsWhatStillComesAndCancels) {
    std::optional<Client::Handle> handle = startDownload();
    client.events.clear();
    handle.reset();
    EXPECT_THAT(client.events, ElementsAre("cancel 5"));
    report(1);
    respond();
    fail();
    EXPECT_THAT(heard, IsEmpty());
}

TEST_F(ClientHandleTest, AHandleMayMove) {
    Client::Handle handle;
    {
        Client::Handle first = start();
        client.events.clear();
        handle = std::move(first);
    }
    EXPECT_THAT(client.events, IsEmpty());
    respond();
    EXPECT_THAT(heard, ElementsAre("response 200"));
}

TEST_F(ClientHandleTest, AnOverwrittenHandleCancels) {
    Client::Handle handle = start();
    client.events.clear();
    handle = Client::Handle();
    EXPECT_THAT(client.events, ElementsAre("cancel 5"));
}

TEST_F(ClientHandleTest, PauseAndResumeGoByTheirId) {
    client.pause(7);
    client.resume(8);
    EXPECT_THAT(client.events, ElementsAre("pause 7", "resume 8"));
}

// --- beyond the end of a client that is of the program's own class ---

std::vector<std::string> cancelled;

// Notes cancellations where they survive it.
class MortalClient : public NotingClient {
 public:
    void cancel_request(RequestId id) override { cancelled.push_back("cancel " + std::to_string(id)); }
};

// Always at the same address.
class ForeignClientTest : public testing::Test {
 protected:
    ForeignClientTest() { cancelled.clear(); }

    Client::Handle start() {
        return client->start_request(
            config, {}, [](const ResponseData&) {}, [](const ErrorData&) {});
    }
    Client::Handle startDownload() {
        return client->start_download(
            config, "path", {}, [](const ResponseData&) {}, [](const ErrorData&) {}, {});
    }

    std::optional<MortalClient> client = std::make_optional<MortalClient>();
    const RequestConfig config;
};

TEST_F(ClientHandleTest, WhatIsGivenAwayReachesAClientOfTheProgramsOwnAsAReference) {
    const std::string url(100, 'u');
    config.url = url;
    const Client::ResponseCallback response = [](Client::RequestId, const ResponseData&) {};
    const Client::ErrorCallback error = [](Client::RequestId, const ErrorData&) {};
    Client& any = client;
    EXPECT_EQ(any.start_request(std::move(config), filter, response, error), 5U);
    EXPECT_EQ(any.start_download(std::move(config), "path", filter, response, error, {}), 5U);
    const auto request = any.start_request(
        std::move(config), filter, [](const ResponseData&) {}, [](const ErrorData&) {});
    const auto download = any.start_download(
        std::move(config), "path", filter, [](const ResponseData&) {}, [](const ErrorData&) {}, {});
    EXPECT_THAT(client.events, ElementsAre("request " + url + " in mode 2", "download " + url + " to path in mode 2",
                                           "request " + url + " in mode 2", "download " + url + " to path in mode 2"));
    EXPECT_EQ(config.url, url);
}

TEST_F(ForeignClientTest, HandleDroppedBehindItsClientDoesNothing) {
    std::optional<Client::Handle> request = start();
    std::optional<Client::Handle> download = startDownload();
    client.reset();
    request.reset();
    download.reset();
    EXPECT_THAT(cancelled, IsEmpty());
}

TEST_F(ForeignClientTest, HandleOfAnEarlierClientAtTheSameAddressDoesNothing) {
    std::optional<Client::Handle> earlier = start();
    client.emplace();
    std::optional<Client::Handle> later = start();
    earlier.reset();
    EXPECT_THAT(cancelled, IsEmpty());
    later.reset();
    EXPECT_THAT(cancelled, ElementsAre("cancel 5"));
}

TEST_F(ForeignClientTest, ClientsDoNotDisturbEachOther) {
    MortalClient other;
    std::optional<Client::Handle> handle = start();
    std::optional<Client::Handle> of_other = other.start_request(
        config, {}, [](const ResponseData&) {}, [](const ErrorData&) {});
    client.reset();
    of_other.reset();
    EXPECT_THAT(cancelled, ElementsAre("cancel 5"));
    handle.reset();
    EXPECT_THAT(cancelled, ElementsAre("cancel 5"));
}

using ClientHandleDeathTest = ClientHandleTest;

TEST_F(ClientHandleDeathTest, AnEmptyCallbackStopsTheProcess) {
    const std::function<void(const ResponseData&)> no_response;
    const std::function<void(const ErrorData&)> no_error;
    const std::function<void(const ProgressData&)> no_progress;
    const auto response = [](const ResponseData&) {};
    const auto error = [](const ErrorData&) {};
    EXPECT_DEATH(client.start_request(config, filter, no_response, error), "Assertion 'response_cb' failed");
    EXPECT_DEATH(client.start_request(config, filter, response, no_error), "Assertion 'error_cb' failed");
    EXPECT_DEATH(client.start_download(config, "path", filter, no_response, error, no_progress),
                 "Assertion 'response_cb' failed");
    EXPECT_DEATH(client.start_download(config, "path", filter, response, no_error, no_progress),
                 "Assertion 'error_cb' failed");
}

// --- above a real client ---

class ClientHandleTransferTest : public ClientTest {
 protected:
    ~ClientHandleTransferTest() override { drop(); }

    void start(const RequestConfig& config) {
        executor.run([&] { startHere(config); });
    }
    // The same on the executor's thread.
    void startHere(const RequestConfig& config) {
        handle = client->start_request(
            config, {}, [this](const ResponseData& data) { events.add("response " + data.body); },
            [this](const ErrorData& data) { events.add("error " + data.message); });
    }
    void drop() {
        executor.run([this] { handle.reset(); });
    }

    std::optional<Client::Handle> handle;
    EventLog events;
};

TEST_F(ClientHandleTransferTest, TheResponseComesAndTheHandleMayGoLater) {
    server.enqueue(Reply(200).body("text"));
    start(get());
    events.await("response text");
    const LogCapture log("TestClient", 9);
    drop();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ClientHandleTransferTest, DroppingTheHandleCancelsTheTransfer) {
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    start(get());
    server.awaitBodyBytesSent(4);
    const LogCapture log("TestClient", 4);
    drop();
    EXPECT_EQ(log.count(" Cancelling"), 1U);
    server.awaitPeerClosed(1);
    drain();
    EXPECT_THAT(events.events(), IsEmpty());
}

TEST_F(ClientHandleTransferTest, DroppingTheHandleDropsAResponseThatIsPosted) {
    server.enqueue(Reply(200).body("text"));
    executor.run([this] {
        startHere(get());
        executor.awaitTag(4035);
        handle.reset();
    });
    drain();
    EXPECT_THAT(events.events(), IsEmpty());
}

TEST_F(ClientHandleTransferTest, TheHandleMayBeDroppedInItsCallback) {
    server.enqueue(Reply(200));
    executor.run([this] {
        handle = client->start_request(
            get(), {},
            [this](const ResponseData&) {
                handle.reset();
                events.add("response");
            },
            [](const ErrorData&) { ADD_FAILURE(); });
    });
    events.await("response");
}

TEST_F(ClientHandleTransferTest, TheHandleMayBeDroppedInItsProgress) {
    const TemporaryDirectory directory;
    server.enqueue(Reply(200).body("half").stallBeforeEnd());
    executor.run([&] {
        handle = client->start_download(
            get(), directory.path("f"), {}, [](const ResponseData&) { ADD_FAILURE(); },
            [](const ErrorData&) { ADD_FAILURE(); },
            [this](const ProgressData&) {
                handle.reset();
                events.add("progress");
            });
    });
    events.await("progress");
    server.awaitPeerClosed(1);
    drain();
    EXPECT_EQ(events.count(), 1U);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ClientHandleTransferTest, AHandleMayOutliveItsClient) {
    server.enqueue(Reply(200).body("text"));
    start(get());
    events.await("response text");
    const std::weak_ptr<Client> observer = client;
    executor.run([this] { client.reset(); });
    drain();
    EXPECT_TRUE(observer.expired());
    drop();
}

TEST_F(ClientHandleTransferTest, AHandleDoesNotKeepItsClientButCancelsWhatKeepsIt) {
    server.enqueue(Reply(200).stallBeforeHeaders());
    start(get());
    server.awaitRequests(1);
    const std::weak_ptr<Client> observer = client;
    executor.run([this] { client.reset(); });
    EXPECT_FALSE(observer.expired());
    drop();
    drain();
    EXPECT_TRUE(observer.expired());
    EXPECT_THAT(events.events(), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
