// SPDX-License-Identifier: MIT
// What becomes of requests while there is no memory: nothing is started half, and no outcome is lost.
#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "client/CurlRequestTest.h"
#include "client/DownloadTest.h"
#include "fixture/EngineHold.h"
#include "fixture/LogCapture.h"
#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"
#include "support/AllocationFailure.h"
#include "support/Files.h"

namespace kel::http::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;

#define KEL_NEEDS_FAILING_ALLOCATIONS \
    if (!FailAllocation::isPossible()) GTEST_SKIP() << "a sanitizer has the allocator"

// --- the engine's end ---

// The queue needs memory now and then: a piece of it for each so many tasks.
TEST(ShortageEngineTest, EndsHoweverManyTasksWait) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    std::size_t refused = 0;
    for (int tasks = 0; tasks < 40; ++tasks) {
        Engine engine([](const std::function<void()>& completion) { completion(); });
        int ran = 0;
        {
            const EngineHold hold(engine);
            for (int i = 0; i < tasks; ++i) engine.queueRequest([&ran] { ++ran; });
            const FailAllocation failure(1, FailAllocation::Extent::all);
            engine.requestTermination();
            refused += failure.refused();
        }
        engine.settle();
        EXPECT_EQ(ran, tasks);
    }
    EXPECT_GT(refused, 0U);
}

// --- starting ---

class ShortageStartTest : public DownloadTest {
 protected:
    // What came of one attempt to start something.
    struct Attempt {
        bool started = false;
        std::size_t refused = 0;
    };

    // Calls `start` on the client's thread, short of one allocation.
    template <typename Start>
    Attempt attempt(std::size_t succeeding, const Start& start) {
        Attempt made;
        executor.run([&] {
            const FailAllocation failure(succeeding + 1);
            try {
                start();
                made.started = true;
            } catch (const std::bad_alloc&) {
                made.started = false;
            }
            made.refused = failure.refused();
        });
        return made;
    }

    // Fails each allocation of `start` in turn: what throws has sent nothing and left nothing, and what does not has
    // started. Each answer has the same body.
    template <typename Start>
    void expectAllOrNothing(const Start& start) {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("new"); });
        std::size_t started = 0;
        failEachAllocation([&](std::size_t succeeding) {
            const Attempt made = attempt(succeeding, start);
            if (made.started) recorder.awaitCount(++started);
            drain();
            EXPECT_EQ(server.requests().size(), started) << "allocation " << succeeding;
            EXPECT_EQ(recorder.outcomes().size(), started);
            EXPECT_EQ(held.use_count(), 3) << "kept after allocation " << succeeding;
            return made.refused;
        });
        EXPECT_GE(started, 1U);
    }

    const std::shared_ptr<int> held = std::make_shared<int>();
    const Client::ResponseCallback on_response =
        [told = recorder.onResponse(), kept = held](Client::RequestId id, const ResponseData& data) { told(id, data); };
    const Client::ErrorCallback on_error = [told = recorder.onError(), kept = held](
                                               Client::RequestId id, const ErrorData& data) { told(id, data); };
};

TEST_F(ShortageStartTest, RequestStartsOrNothingIsSent) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    RequestConfig config = get();
    config.headers = {{"X-Long-Header-Name", "a value that does not fit into the text itself"}};
    expectAllOrNothing([&] { client->start_request(config, {}, on_response, on_error); });
}

// Each copy of it calls the client when it goes.
struct CancelsAtItsEnd {
    CancelsAtItsEnd(Client& of_requests, int& count) : client(of_requests), gone(count) {}
    CancelsAtItsEnd(const CancelsAtItsEnd& other) = default;
    CancelsAtItsEnd& operator=(const CancelsAtItsEnd&) = delete;
    ~CancelsAtItsEnd() {
        for (Client::RequestId id = 1; id < 200; ++id) client.cancel_request(id);
        ++gone;
    }
    void operator()(Client::RequestId /*id*/, const ErrorData& /*data*/) const {}

    Client& client;
    int& gone;
};

TEST_F(ShortageStartTest, WhatTheCallbacksHoldMayCallTheClientWhereNothingIsStarted) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    int gone = 0;
    failEachAllocation([&](std::size_t succeeding) {
        const Attempt made = attempt(succeeding, [&] {
            const CancelsAtItsEnd cancels(*client, gone);
            client->start_request(get(), {}, on_response, cancels);
        });
        drain();
        return made.refused;
    });
    EXPECT_GT(gone, 10);
}

// A body that is about to be sent may exist nowhere else.
TEST_F(ShortageStartTest, WhatIsGivenAwayStaysWhereNothingIsStarted) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("new"); });
    const Client::ProgressCallback on_progress = recorder.onProgress();
    RequestConfig whole = get("/a/path/that/does/not/fit/into/the/text/itself");
    whole.body = "a body that does not fit into the text itself";
    whole.download_path = "another path that does not fit into the text itself";
    for (const bool is_download : {false, true}) {
        failEachAllocation([&](std::size_t succeeding) {
            RequestConfig given = whole;
            const std::size_t before = recorder.outcomes().size();
            const Attempt made = attempt(succeeding, [&] {
                if (is_download) {
                    client->start_download(std::move(given), target, {}, on_response, on_error, on_progress);
                } else {
                    client->start_request(std::move(given), {}, on_response, on_error);
                }
            });
            if (made.started) {
                recorder.awaitCount(before + 1);
            } else {
                EXPECT_EQ(given.url, whole.url) << "allocation " << succeeding;
                EXPECT_EQ(given.headers, whole.headers);
                EXPECT_EQ(given.body, whole.body);
                EXPECT_EQ(given.download_path, whole.download_path);
            }
            drain();
            EXPECT_EQ(held.use_count(), 3);
            return made.refused;
        });
    }
}

TEST_F(ShortageStartTest, RequestWhoseLinesFindNoMemoryHasStarted) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    const LogCapture log("TestClient", 9);
    const RequestConfig config = get("/a/path/that/does/not/fit/into/the/text/itself");
    LogFilter filter;
    filter.url_filter = [](const std::string& url) { return url + " as the filter returned it"; };
    expectAllOrNothing([&] { client->start_request(config, filter, on_response, on_error); });
}

TEST_F(ShortageStartTest, DownloadStartsOrTheTargetStays) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    useDigest(&checksum::sha256);
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("new"); });
    const Client::ProgressCallback on_progress = recorder.onProgress();
    failEachAllocation([&](std::size_t succeeding) {
        writeWholeFile(target, "old");
        const std::size_t before = recorder.outcomes().size();
        const Attempt made =
            attempt(succeeding, [&] { client->start_download(get(), target, {}, on_response, on_error, on_progress); });
        if (made.started) recorder.awaitCount(before + 1);
        drain();
        EXPECT_EQ(content(), made.started ? "new" : "old") << "allocation " << succeeding;
        EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
        EXPECT_EQ(held.use_count(), 3);
        return made.refused;
    });
}

TEST_F(ShortageStartTest, HandleIsGivenOutOrNothingIsSent) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    std::optional<Client::Handle> handle;
    const std::function<void(const ResponseData&)> response = [this](const ResponseData& data) {
        on_response(1, data);
    };
    const std::function<void(const ErrorData&)> error = [this](const ErrorData& data) { on_error(1, data); };
    const RequestConfig config = get();
    expectAllOrNothing([&] { handle = client->start_request(config, {}, response, error); });
    executor.run([&] { handle.reset(); });
}

// --- the outcome, where the engine hands it over ---

class ShortageOutcomeTest : public CurlRequestTest {
 protected:
    // Ends one request after the other with `end`, each short of another allocation. Every one has its outcome.
    template <typename Make, typename End>
    void expectAnOutcomeOfEach(const Make& make, const End& end) {
        failEachAllocation([&](std::size_t succeeding) {
            const CurlRequestPtr request = make();
            std::size_t refused = 0;
            {
                const FailAllocation failure(succeeding + 1);
                end(*request);
                refused = failure.refused();
            }
            checkOutcome(recorder.await(id), refused);
            executor.run([] {});
            EXPECT_EQ(recorder.outcomes().size(), succeeding + 1) << "allocation " << succeeding;
            return refused;
        });
    }

    virtual void checkOutcome(const Recorder::Outcome& /*outcome*/, std::size_t /*refused*/) {}

    CurlRequestPtr answered() {
        const CurlRequestPtr request = plainRequest();
        receiveHead(*request, {"Content-Type: text/plain\r\n"});
        request->notifyDataReceived("a body that does not fit into the text itself");
        request->reportDownloadProgress(45, 45);
        return request;
    }
};

TEST_F(ShortageOutcomeTest, ResponseComesThoughAnAllocationFails) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    expectAnOutcomeOfEach([this] { return answered(); }, [](CurlRequest& request) { complete(request); });
    for (const auto& told : recorder.outcomes()) {
        ASSERT_TRUE(told.response);
        EXPECT_EQ(told.response->body, "a body that does not fit into the text itself");
        EXPECT_EQ(told.response->headers.size(), 1U);
    }
}

TEST_F(ShortageOutcomeTest, ErrorComesThoughAnAllocationFailsAtWorstWithAnotherText) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    const std::string text(100, 'x');
    expectAnOutcomeOfEach([this] { return answered(); },
                          [&text](CurlRequest& request) { fail(request, Failure::Timeout, text); });
    for (const auto& told : recorder.outcomes()) {
        ASSERT_TRUE(told.error);
        EXPECT_EQ(told.error->failure, ClientFailure::Timeout);
        EXPECT_THAT(told.error->message, AnyOf(Eq(text), Eq("Out of memory")));
    }
    EXPECT_EQ(recorder.outcomes().back().error->message, text);
}

// Counts, and takes no memory.
struct CountingRequest : Request {
    int notifyDataReceived(std::string_view /*data*/) override { return 0; }
    void notifyDataEnd() override {}
    void notifyFailure(Failure /*failure*/, std::string_view /*text*/) override { ++failures; }

    int failures = 0;
};

TEST(ShortageFailureTest, FailureOfLibcurlIsToldThoughAnAllocationFails) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    const LogCapture log("HttpClient", 1);
    logging::getLogger("HttpClient", 0);  // as the engine has done by then
    const auto request = std::make_shared<CountingRequest>();
    request->config.url = "http://a-host-whose-name-does-not-fit-into-the-text-itself.example/";
    int told = 0;
    failEachAllocation([&](std::size_t succeeding) {
        const FailAllocation failure(succeeding + 1);
        Engine::runCallbackHandlerInFsmContext(request, CURLE_COULDNT_CONNECT, 0);
        EXPECT_EQ(request->failures, ++told);
        return failure.refused();
    });
    EXPECT_TRUE(log.contains("Failed to connect to 'a-host-whose-name-does-not-fit-into-the-text-itself.example'"));
}

TEST_F(ShortageOutcomeTest, TextOfAnErrorMayEndWithTheCall) {
    const CurlRequestPtr request = plainRequest();
    std::string text(100, 'x');
    executor.hold();
    fail(*request, Failure::Timeout, text);
    text.assign(100, 'y');
    executor.release();
    EXPECT_EQ(error().message, std::string(100, 'x'));
}

class ShortageDownloadTest : public ShortageOutcomeTest {
 protected:
    CurlRequestPtr start(const std::string& body) {
        writeWholeFile(target, "old");
        executor.run([this] {
            id = client->start_download({}, target, {}, recorder.onResponse(), recorder.onError(),
                                        recorder.onProgress());
        });
        ids.push_back(id);
        auto request = std::make_shared<CurlRequest>(client, id, config, target, checksum::sha256());
        receiveHead(*request);
        if (!body.empty()) request->notifyDataReceived(body);
        return request;
    }

    void checkOutcome(const Recorder::Outcome& outcome, std::size_t refused) override {
        if (outcome.response) {
            EXPECT_EQ(outcome.response->body.size(), 64U);
            EXPECT_EQ(readWholeFile(target), expected);
        } else {
            EXPECT_GT(refused, 0U);
            EXPECT_THAT(outcome.error->message, AnyOf("Out of memory", "Failed to write empty response"));
            EXPECT_THAT(readWholeFile(target), AnyOf("old", expected));
        }
        EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    }

    ~ShortageDownloadTest() override {
        executor.run([this] {
            for (const Client::RequestId known : ids) client->cancel_request(known);
            client.reset();
        });
    }

    const std::string target = directory.path("f.bin");
    std::string expected;
    RequestConfig config;
    std::shared_ptr<ClientImpl> client = std::make_shared<ClientImpl>(executor, *logging::getLogger("TestClient", 0));
    std::vector<Client::RequestId> ids;
};

TEST_F(ShortageDownloadTest, TargetIsOldOrNew) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    expected = "new";
    expectAnOutcomeOfEach([this] { return start("new"); }, [](CurlRequest& request) { complete(request); });
    EXPECT_TRUE(recorder.outcomes().back().response);
}

TEST_F(ShortageDownloadTest, EmptyTargetIsOldOrNew) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    expectAnOutcomeOfEach([this] { return start(""); }, [](CurlRequest& request) { complete(request); });
    EXPECT_TRUE(recorder.outcomes().back().response);
}

TEST_F(ShortageDownloadTest, LinesOfARenamingCostNoTarget) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    const LogCapture log("CurlRequest", 9);
    expected = "new";
    expectAnOutcomeOfEach([this] { return start("new"); }, [](CurlRequest& request) { complete(request); });
    EXPECT_TRUE(recorder.outcomes().back().response);
}

TEST_F(ShortageDownloadTest, FailedDownloadLeavesNoFile) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    failEachAllocation([&](std::size_t succeeding) {
        const CurlRequestPtr request = start("half");
        const std::string text(100, 'x');
        std::size_t refused = 0;
        {
            const FailAllocation failure(succeeding + 1);
            fail(*request, Failure::WriteFailed, text);
            refused = failure.refused();
        }
        EXPECT_EQ(recorder.await(id).error->failure, ClientFailure::WriteFailed);
        EXPECT_THAT(directory.names(), ElementsAre("f.bin")) << "allocation " << succeeding;
        EXPECT_EQ(readWholeFile(target), "old");
        return refused;
    });
}

// The file is there before the stream has found memory for its buffer.
TEST_F(ShortageDownloadTest, FileThatCanNotBeOpenedForWantOfMemoryIsRemoved) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    failEachAllocation([&](std::size_t succeeding) {
        CurlRequestPtr request = start("");
        std::size_t refused = 0;
        bool thrown = false;
        {
            const FailAllocation failure(succeeding + 1);
            try {
                request->notifyDataReceived("new");
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            refused = failure.refused();
        }
        EXPECT_EQ(thrown, refused > 0);
        fail(*request, Failure::Other, "Out of memory");
        recorder.await(id);
        EXPECT_THAT(directory.names(), ElementsAre("f.bin")) << "allocation " << succeeding;
        EXPECT_EQ(readWholeFile(target), "old");
        return refused;
    });
}

TEST_F(ShortageDownloadTest, ProgressIsLeftOutAndTheOutcomeComes) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    expected = "new";
    expectAnOutcomeOfEach(
        [this] {
            CurlRequestPtr request = start("new");
            request->notifyRemoteAddr("2001:db8:0:1:1:1:1:1", 443);
            return request;
        },
        [](CurlRequest& request) {
            request.reportDownloadProgress(3, 3);
            complete(request);
        });
}

// --- an executor without memory ---

// Has no memory for the first `refusing` tasks, but for progress if that is to come.
class ForgetfulExecutor : public RecordingExecutor {
 public:
    void post(std::function<void()> task, int tag) override {
        if (refusing > 0) {
            --refusing;
            throw std::bad_alloc();
        }
        RecordingExecutor::post(std::move(task), tag);
    }

    int refusing = 0;
};

class ForgetfulExecutorTest : public CurlRequestTest {
 protected:
    ForgetfulExecutorTest()
        : forgetful_client(std::make_shared<ClientImpl>(forgetful, *logging::getLogger("TestClient", 0))) {}
    ~ForgetfulExecutorTest() override {
        forgetful.run([this] { forgetful_client.reset(); });
    }

    CurlRequestPtr answered() {
        forgetful.run(
            [this] { id = forgetful_client->start_request({}, {}, recorder.onResponse(), recorder.onError()); });
        auto request = std::make_shared<CurlRequest>(forgetful_client, id, RequestConfig());
        receiveHead(*request);
        return request;
    }

    ForgetfulExecutor forgetful;
    std::shared_ptr<ClientImpl> forgetful_client;
};

TEST_F(ForgetfulExecutorTest, OutcomeIsPostedUntilItIsTaken) {
    const CurlRequestPtr request = answered();
    request->notifyDataReceived("body");
    forgetful.refusing = 3;
    complete(*request);
    EXPECT_EQ(forgetful.refusing, 0);
    EXPECT_EQ(recorder.await(id).response->body, "body");
    EXPECT_THAT(forgetful.tags(), ElementsAre(4035));
}

TEST_F(ForgetfulExecutorTest, ErrorIsPostedUntilItIsTaken) {
    const CurlRequestPtr request = answered();
    forgetful.refusing = 3;
    fail(*request, Failure::Timeout, "too slow");
    EXPECT_EQ(recorder.await(id).error->message, "too slow");
    EXPECT_THAT(forgetful.tags(), ElementsAre(4036));
}

TEST_F(ForgetfulExecutorTest, ProgressIsPostedOnceOnly) {
    answered();
    const auto request = std::make_shared<CurlRequest>(forgetful_client, id, RequestConfig(), directory.path("f"));
    receiveHead(*request);
    forgetful.refusing = 1;
    request->reportDownloadProgress(0, 1);
    EXPECT_EQ(forgetful.refusing, 0);
    complete(*request);
    recorder.await(id);
    EXPECT_THAT(forgetful.tags(), ElementsAre(4035));
}

using ForgetfulExecutorDeathTest = ForgetfulExecutorTest;

class BrokenExecutor : public ko::executor {
 public:
    void post(std::function<void()> /*task*/, int /*tag*/) override { throw std::runtime_error("broken"); }
};

TEST_F(ForgetfulExecutorDeathTest, AnythingElseThatPostThrowsStopsTheProcess) {
    EXPECT_DEATH(
        {
            BrokenExecutor broken;
            const auto client = std::make_shared<ClientImpl>(broken, *logging::getLogger("TestClient", 0));
            const auto request = std::make_shared<CurlRequest>(client, 1, RequestConfig());
            receiveHead(*request);
            complete(*request);
        },
        "broken");
}

// --- the outcome, on the executor's thread ---

// The test's thread is the executor's.
class ShortageDeliveryTest : public testing::Test {
 protected:
    using CurlRequest = ClientImpl::CurlRequest;

    // Takes no memory to be called, but to be copied.
    struct Heard {
        int responses = 0;
        int errors = 0;
        int reports = 0;
        std::size_t headers = 0;
        ClientFailure failure = ClientFailure::Timeout;
        bool out_of_memory = false;
    };

    Client::ResponseCallback onResponse() {
        return [this](Client::RequestId, const ResponseData& data) {
            ++heard.responses;
            heard.headers = data.headers.size();
        };
    }
    Client::ErrorCallback onError() {
        return [this](Client::RequestId, const ErrorData& data) {
            ++heard.errors;
            heard.failure = data.failure;
            heard.out_of_memory = data.message == "Out of memory";
        };
    }
    Client::ProgressCallback onProgress() {
        return [this, large = std::array<char, 100>()](Client::RequestId, const ProgressData&) { ++heard.reports; };
    }

    void drainShortOf(std::size_t succeeding, std::size_t& refused) {
        const FailAllocation failure(succeeding + 1);
        loop.drain();
        refused = failure.refused();
    }

    ko::loop_executor loop;
    const std::shared_ptr<ClientImpl> client = std::make_shared<ClientImpl>(loop, *logging::getLogger("TestClient", 0));
    Heard heard;
};

TEST_F(ShortageDeliveryTest, ResponseThatFindsNoMemoryIsAnError) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    std::size_t errors = 0;
    failEachAllocation([&](std::size_t succeeding) {
        heard = {};
        const auto id = client->start_request({}, {}, onResponse(), onError());
        const auto request = std::make_shared<CurlRequest>(client, id, RequestConfig());
        request->notifyHeader("HTTP/1.1 200 OK\r\n");
        request->notifyHeader("A-Header-Of-Some-Length: with a value of some length\r\n");
        request->notifyHeader("Another-Header-Of-Some-Length: with a value of some length\r\n\r\n");
        request->setResponseCode(200);
        request->notifyDataEnd();
        std::size_t refused = 0;
        drainShortOf(succeeding, refused);
        EXPECT_EQ(heard.responses, refused == 0 ? 1 : 0);
        EXPECT_EQ(heard.errors, refused == 0 ? 0 : 1);
        if (refused == 0) {
            EXPECT_EQ(heard.headers, 2U);
        } else {
            EXPECT_EQ(heard.failure, ClientFailure::Other);
            EXPECT_TRUE(heard.out_of_memory);
            ++errors;
        }
        return refused;
    });
    EXPECT_GE(errors, 4U);
}

TEST_F(ShortageDeliveryTest, LinesThatFindNoMemoryCostNoResponse) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    const LogCapture log("TestClient", 9);
    failEachAllocation([&](std::size_t succeeding) {
        heard = {};
        const auto id = client->start_request({}, {}, onResponse(), onError());
        const auto request = std::make_shared<CurlRequest>(client, id, RequestConfig());
        request->notifyHeader("HTTP/1.1 200 OK\r\n\r\n");
        request->setResponseCode(200);
        request->notifyDataEnd();
        std::size_t refused = 0;
        drainShortOf(succeeding, refused);
        EXPECT_EQ(heard.responses, 1);
        return refused;
    });
}

TEST_F(ShortageDeliveryTest, ProgressThatFindsNoMemoryIsLeftOut) {
    KEL_NEEDS_FAILING_ALLOCATIONS;
    failEachAllocation([&](std::size_t succeeding) {
        heard = {};
        const auto id = client->start_download({}, "path", {}, onResponse(), onError(), onProgress());
        const auto request = std::make_shared<CurlRequest>(client, id, RequestConfig(), "path");
        request->reportDownloadProgress(0, 1);
        std::size_t refused = 0;
        drainShortOf(succeeding, refused);
        EXPECT_EQ(heard.reports, refused == 0 ? 1 : 0);
        client->cancel_request(id);
        return refused;
    });
}

}  // namespace
}  // namespace kel::http::test
