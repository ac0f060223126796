// SPDX-License-Identifier: MIT
#include "kel-http/client/ClientImpl.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "kel-http/client/CurlRequest.h"
#include "ko/loop_executor.h"
#include "support/VirtualPlace.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Ids = std::vector<Client::RequestId>;

// --- the types that programs are built against ---

static_assert(std::is_same_v<Client::ResponseCallback, std::function<void(std::uint32_t, const ResponseData&)>>);
static_assert(std::is_same_v<Client::ErrorCallback, std::function<void(std::uint32_t, const ErrorData&)>>);
static_assert(std::is_same_v<Client::ProgressCallback, std::function<void(std::uint32_t, const ProgressData&)>>);
static_assert(std::is_same_v<decltype(createClient(std::declval<ko::executor&>(), std::declval<logging::Logger&>())),
                             std::shared_ptr<Client>>);
static_assert(std::is_same_v<std::underlying_type_t<LogFilter::Mode>, std::uint32_t>);
static_assert(
    std::is_same_v<HeaderMap,
                   std::unordered_map<std::string, std::string, ko::containers::lc_hash, ko::containers::lc_equals>>);

class LargerClient : public Client {
 public:
    virtual void more() = 0;
};

TEST(ClientTypeTest, VirtualFunctionsStandInTheirPlaces) {
    using Start = Client::RequestId (Client::*)(const RequestConfig&, const LogFilter&, const Client::ResponseCallback&,
                                                const Client::ErrorCallback&);
    using StartDownload = Client::RequestId (Client::*)(const RequestConfig&, const std::string&, const LogFilter&,
                                                        const Client::ResponseCallback&, const Client::ErrorCallback&,
                                                        const Client::ProgressCallback&);
    EXPECT_EQ(virtualPlace<Start>(&Client::start_request), 2U);
    EXPECT_EQ(virtualPlace<StartDownload>(&Client::start_download), 3U);
    EXPECT_EQ(virtualPlace(&Client::pause_request), 4U);
    EXPECT_EQ(virtualPlace(&Client::resume_request), 5U);
    EXPECT_EQ(virtualPlace(&Client::cancel_request), 6U);
    EXPECT_EQ(virtualPlace(&Client::allocate_request_id), 7U);
    EXPECT_EQ(virtualPlace(&LargerClient::more), 8U);
}

logging::Logger& logger() {
    return *logging::getLogger("TestClient", 0);
}

Client::ResponseCallback noResponse() {
    return [](Client::RequestId, const ResponseData&) {};
}

Client::ErrorCallback noError() {
    return [](Client::RequestId, const ErrorData&) {};
}

Client::ProgressCallback noProgress() {
    return [](Client::RequestId, const ProgressData&) {};
}

// There is no engine, so that a started request only waits to be cancelled. The client belongs to the test's thread.
class ClientImplTest : public testing::Test {
 protected:
    ~ClientImplTest() override {
        for (const Client::RequestId id : started_) client->cancel_request(id);
    }

    Client::RequestId start() {
        started_.push_back(client->start_request({}, {}, noResponse(), noError()));
        return started_.back();
    }

    Client::RequestId startDownload() {
        started_.push_back(client->start_download({}, "path", {}, noResponse(), noError(), noProgress()));
        return started_.back();
    }

    RecordingExecutor executor;
    std::shared_ptr<Client> client = createClient(executor, logger());

 private:
    Ids started_;
};

// --- ids ---

TEST_F(ClientImplTest, IdsCountFromOne) {
    EXPECT_THAT((Ids{start(), startDownload(), start()}), ElementsAre(1U, 2U, 3U));
    EXPECT_EQ(client->allocate_request_id(), 4U);
    EXPECT_EQ(start(), 5U);
}

TEST_F(ClientImplTest, IdsWrapFromTheHighestToOne) {
    client = std::make_shared<ClientImpl>(executor, logger(), ClientOptions(), 4294967294U);
    EXPECT_THAT((Ids{start(), start(), start(), start()}), ElementsAre(4294967294U, 4294967295U, 1U, 2U));
}

TEST_F(ClientImplTest, EachClientCountsItsOwnIds) {
    EXPECT_EQ(start(), 1U);
    EXPECT_EQ(createClient(executor, logger())->allocate_request_id(), 1U);
}

TEST_F(ClientImplTest, NoRequestHasTheIdZero) {
    EXPECT_EQ(NoRequestId, 0U);
    static_assert(std::is_same_v<Client::RequestId, std::uint32_t>);
}

// --- unknown ids ---

TEST_F(ClientImplTest, UnknownIdsAreIgnored) {
    const LogCapture log(9);
    for (const Client::RequestId id : {NoRequestId, 1U, 4294967295U}) {
        client->cancel_request(id);
        client->pause_request(id);
        client->resume_request(id);
        client->pause(id);
        client->resume(id);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ClientImplTest, TheSecondCancellationIsIgnored) {
    const Client::RequestId id = start();
    const LogCapture log("TestClient", 9);
    client->cancel_request(id);
    client->cancel_request(id);
    EXPECT_EQ(log.count(" Cancelling"), 1U);
}

// --- threads and ownership ---

TEST_F(ClientImplTest, AClientBelongsToTheThreadThatFirstCallsIt) {
    std::shared_ptr<Client> made_elsewhere;
    std::thread([&] { made_elsewhere = createClient(executor, logger()); }).join();
    EXPECT_EQ(made_elsewhere->allocate_request_id(), 1U);
    EXPECT_EQ(made_elsewhere->allocate_request_id(), 2U);
}

TEST_F(ClientImplTest, AClientMayBeDestroyedOnAnotherThread) {
    client->allocate_request_id();
    std::thread([last = std::move(client)]() mutable { last.reset(); }).join();
}

TEST_F(ClientImplTest, AClientThatNoPointerOwnsCanNotStartARequest) {
    ClientImpl unowned(executor, logger());
    EXPECT_THROW(unowned.start_request({}, {}, noResponse(), noError()), std::bad_weak_ptr);
}

// --- programming errors ---

class ClientImplDeathTest : public ClientImplTest {
 protected:
    // Makes the test's own thread a foreign one.
    void bindElsewhere() {
        std::thread([this] { client->allocate_request_id(); }).join();
    }

    static constexpr const char* on_foreign_thread =
        "kel-http/client/Client\\.cpp:.*Assertion 'my_thread_ == ko::this_thread::get_id\\(\\)' failed";
};

// Breaks what executors promise: a task runs inside post(), on whatever thread that is.
class ImmediateExecutor : public ko::executor {
 public:
    void post(std::function<void()> task, int /*tag*/) override { task(); }
};

class ClientWithoutIds : public ClientImpl {
 public:
    using ClientImpl::ClientImpl;
    RequestId allocate_request_id() override { return NoRequestId; }
};

TEST_F(ClientImplDeathTest, EveryCallFromAnotherThreadStopsTheProcess) {
    bindElsewhere();
    EXPECT_DEATH(client->start_request({}, {}, noResponse(), noError()), on_foreign_thread);
    EXPECT_DEATH(client->start_download({}, "path", {}, noResponse(), noError(), noProgress()), on_foreign_thread);
    EXPECT_DEATH(client->pause_request(1), on_foreign_thread);
    EXPECT_DEATH(client->resume_request(1), on_foreign_thread);
    EXPECT_DEATH(client->cancel_request(1), on_foreign_thread);
    EXPECT_DEATH(client->allocate_request_id(), on_foreign_thread);
}

TEST_F(ClientImplDeathTest, WhatARequestReportsOnAnotherThreadStopsTheProcess) {
    ImmediateExecutor immediate;
    const auto owner = std::make_shared<ClientImpl>(immediate, logger());
    client = owner;
    bindElsewhere();
    const auto request = std::make_shared<ClientImpl::CurlRequest>(owner, 1, RequestConfig());
    request->notifyHeader("HTTP/1.1 200 OK\r\n\r\n");
    request->setResponseCode(200);
    EXPECT_DEATH(request->notifyDataEnd(), on_foreign_thread);
    request->setResponseCode(0);
    EXPECT_DEATH(request->notifyFailure(Failure::Timeout, "text"), on_foreign_thread);
    const auto download = std::make_shared<ClientImpl::CurlRequest>(owner, 1, RequestConfig(), "path");
    EXPECT_DEATH(download->reportDownloadProgress(9, 9), on_foreign_thread);
}

TEST_F(ClientImplDeathTest, AnEmptyCallbackStopsTheProcess) {
    EXPECT_DEATH(client->start_request({}, {}, Client::ResponseCallback(), noError()),
                 "kel-http/client/Client\\.cpp:.*Assertion 'response_cb' failed");
    EXPECT_DEATH(client->start_request({}, {}, noResponse(), Client::ErrorCallback()), "Assertion 'error_cb' failed");
    EXPECT_DEATH(client->start_download({}, "path", {}, Client::ResponseCallback(), noError(), noProgress()),
                 "Assertion 'response_cb' failed");
    EXPECT_DEATH(client->start_download({}, "path", {}, noResponse(), Client::ErrorCallback(), noProgress()),
                 "Assertion 'error_cb' failed");
    EXPECT_DEATH(client->start_download({}, "path", {}, noResponse(), noError(), Client::ProgressCallback()),
                 "Assertion 'progress_cb' failed");
}

TEST_F(ClientImplDeathTest, CallbacksAreLookedAtInTheirOrderAndBeforeTheThread) {
    bindElsewhere();
    EXPECT_DEATH(client->start_request({}, {}, Client::ResponseCallback(), Client::ErrorCallback()),
                 "Assertion 'response_cb' failed");
    EXPECT_DEATH(client->start_request({}, {}, noResponse(), Client::ErrorCallback()), "Assertion 'error_cb' failed");
    EXPECT_DEATH(client->start_download({}, "path", {}, Client::ResponseCallback(), Client::ErrorCallback(),
                                        Client::ProgressCallback()),
                 "Assertion 'response_cb' failed");
    EXPECT_DEATH(
        client->start_download({}, "path", {}, noResponse(), Client::ErrorCallback(), Client::ProgressCallback()),
        "Assertion 'error_cb' failed");
    EXPECT_DEATH(client->start_download({}, "path", {}, noResponse(), noError(), Client::ProgressCallback()),
                 "Assertion 'progress_cb' failed");
}

TEST_F(ClientImplDeathTest, WhatACallbackThrowsStopsTheProcessThoughItIsWantOfMemory) {
    ko::loop_executor loop;
    const auto owner = std::make_shared<ClientImpl>(loop, logger());
    const Client::RequestId id = owner->start_request(
        {}, {}, [](Client::RequestId, const ResponseData&) { throw std::bad_alloc(); }, noError());
    const auto request = std::make_shared<ClientImpl::CurlRequest>(owner, id, RequestConfig());
    request->notifyHeader("HTTP/1.1 200 OK\r\n\r\n");
    request->setResponseCode(200);
    request->notifyDataEnd();
    EXPECT_DEATH(loop.drain(), "bad_alloc");
    owner->cancel_request(id);
}

TEST_F(ClientImplDeathTest, AnIdOfZeroStopsTheProcess) {
    client = std::make_shared<ClientWithoutIds>(executor, logger());
    EXPECT_DEATH(client->start_request({}, {}, noResponse(), noError()), "Assertion 'id != NoRequestId' failed");
    EXPECT_DEATH(client->start_download({}, "path", {}, noResponse(), noError(), noProgress()),
                 "Assertion 'id != NoRequestId' failed");
}

// --- without an engine ---

TEST_F(ClientImplTest, WithoutAnEngineNothingComesAndCancellingFreesAll) {
    RequestConfig config;
    config.url = "http://127.0.0.1:1/";
    const auto held = std::make_shared<int>();
    const Client::RequestId id = client->start_request(
        config, {}, [held](Client::RequestId, const ResponseData&) { ADD_FAILURE(); },
        [held](Client::RequestId, const ErrorData&) { ADD_FAILURE(); });
    EXPECT_THAT(executor.tags(), IsEmpty());
    client->pause_request(id);
    client->resume_request(id);
    EXPECT_EQ(held.use_count(), 3);
    client->cancel_request(id);
    EXPECT_EQ(held.use_count(), 1);
    executor.run([] {});
}

// A request without an engine waits, and has what it was given.
TEST_F(ClientImplTest, WhatIsGivenAwayIsMovedAndWhatIsNotIsCopied) {
    const auto held = std::make_shared<int>();
    const auto fresh = [&held] {
        RequestConfig config;
        config.body = "a body that does not fit into the string itself";
        config.verifier = [held](int, x509_store_ctx_st*) { return 1; };
        return config;
    };
    RequestConfig kept = fresh();
    client->start_request(kept, {}, noResponse(), noError());
    EXPECT_EQ(kept.body, fresh().body);
    EXPECT_EQ(held.use_count(), 3);
    RequestConfig given = fresh();
    const char* const bytes = given.body.data();
    std::vector<Client::RequestId> ids;
    ids.push_back(client->start_request(std::move(given), {}, noResponse(), noError()));
    EXPECT_NE(given.body.data(), bytes);
    EXPECT_FALSE(given.verifier);
    ids.push_back(client->start_download(fresh(), "path", {}, noResponse(), noError(), noProgress()));
    const auto request = client->start_request(
        fresh(), {}, [](const ResponseData&) {}, [](const ErrorData&) {});
    const auto download = client->start_download(
        fresh(), "path", {}, [](const ResponseData&) {}, [](const ErrorData&) {}, {});
    EXPECT_EQ(held.use_count(), 7);
    client->cancel_request(1);
    for (const Client::RequestId id : ids) client->cancel_request(id);
    EXPECT_EQ(held.use_count(), 4);
}

TEST_F(ClientImplTest, ARunningRequestKeepsItsClientAndACancelledOneDoesNot) {
    const Client::RequestId id = client->start_request({}, {}, noResponse(), noError());
    const std::weak_ptr<Client> observer = client;
    Client& kept = *client;
    client = nullptr;
    EXPECT_FALSE(observer.expired());
    kept.cancel_request(id);
    EXPECT_TRUE(observer.expired());
}

}  // namespace
}  // namespace kel::http::test
