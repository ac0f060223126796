// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "fixture/EngineTest.h"
#include "kel-http/legacy/HTTPEngine.h"
#include "legacy/TaskQueue.h"
#include "support/ClosedPort.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Notes which thread calls its final hooks.
class ThreadNotingRequest : public RecordingRequest {
 public:
    using RecordingRequest::RecordingRequest;

    void notifyDataEnd() override {
        final_thread = std::this_thread::get_id();
        RecordingRequest::notifyDataEnd();
    }
    void notifyFailure(Failure failure, std::string_view text) override {
        final_thread = std::this_thread::get_id();
        RecordingRequest::notifyFailure(failure, text);
    }

    std::thread::id final_thread;
};

// The executor's thread is that of the test.
class HTTPEngineTransferTest : public EngineTest {
 protected:
    HTTPEngineTransferTest() { useEngine(std::make_unique<HTTPEngine>("test", queue)); }

    static std::shared_ptr<ThreadNotingRequest> run(const RequestConfig& config) {
        auto made = std::make_shared<ThreadNotingRequest>(config);
        made->runRequest();
        return made;
    }

    TaskQueue queue;
};

TEST_F(HTTPEngineTransferTest, ResponseComesOnTheExecutorsThread) {
    queue.runNext();
    server.enqueue(Reply(200).body("hello"));
    const auto request = run(get());
    EXPECT_EQ(queue.runNext(), "handle_engine_callback");
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
    EXPECT_EQ(request->body(), "hello");
    EXPECT_EQ(request->final_thread, std::this_thread::get_id());
}

TEST_F(HTTPEngineTransferTest, FailureComesOnTheExecutorsThread) {
    queue.runNext();
    const ClosedPort closed;
    RequestConfig config;
    config.url = closed.url();
    const auto request = run(config);
    EXPECT_EQ(queue.runNext(), "handle_engine_callback");
    EXPECT_THAT(request->outcome.events(), ElementsAre(testing::StartsWith("failure 5: ")));
    EXPECT_EQ(request->final_thread, std::this_thread::get_id());
}

TEST_F(HTTPEngineTransferTest, NothingIsHeardBeforeTheExecutorRuns) {
    queue.runNext();
    server.enqueue(Reply(200));
    const auto request = run(get());
    const TaskQueue::Task completion = queue.take();
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    completion.run();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
}

TEST_F(HTTPEngineTransferTest, RequestThatIsCancelledBeforeItsCompletionRunsHearsNothing) {
    queue.runNext();
    server.enqueue(Reply(200));
    const auto request = run(get());
    const TaskQueue::Task completion = queue.take();
    request->tryToCancelRequest();
    completion.run();
    EXPECT_THAT(request->outcome.events(), IsEmpty());
}

TEST_F(HTTPEngineTransferTest, RequestThatIsRunAgainBeforeItsCompletionRunsHearsOfTheNewRunOnly) {
    queue.runNext();
    server.enqueue(Reply(200));
    const auto request = run(get());
    const TaskQueue::Task stale = queue.take();
    request->tryToCancelRequest();
    server.enqueue(Reply(404));
    request->runRequest();
    stale.run();
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    queue.runNext();
    EXPECT_THAT(request->outcome.events(), ElementsAre("failure 6: HTTP code=404"));
    EXPECT_EQ(queue.size(), 0U);
}

TEST_F(HTTPEngineTransferTest, RequestThatCanNotBeSetUpIsRunAgainLikewise) {
    queue.runNext();
    RequestConfig config = get();
    config.headers["X-Broken"] = "two\r\nlines";
    const auto request = run(config);
    const TaskQueue::Task stale = queue.take();
    request->tryToCancelRequest();
    request->runRequest();
    stale.run();
    EXPECT_THAT(request->outcome.events(), IsEmpty());
    queue.runNext();
    EXPECT_THAT(request->outcome.events(), ElementsAre(testing::StartsWith("failure 2: ")));
    EXPECT_EQ(queue.size(), 0U);
}

TEST_F(HTTPEngineTransferTest, CompletionMayOutliveTheEngine) {
    queue.runNext();
    server.enqueue(Reply(200));
    const auto request = run(get());
    const TaskQueue::Task completion = queue.take();
    stopEngine();
    completion.run();
    EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
}

TEST_F(HTTPEngineTransferTest, TransfersSucceedWhileTheProxyIsBeingSetUp) {
    constexpr std::size_t count = 20;
    for (std::size_t i = 0; i < count; ++i) server.enqueue(Reply(200));
    std::vector<std::shared_ptr<ThreadNotingRequest>> requests;
    for (std::size_t i = 0; i < count; ++i) requests.push_back(run(get()));
    EXPECT_EQ(queue.runNext(), "InitializeProxy");
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(queue.runNext(), "handle_engine_callback");
    for (const auto& request : requests) EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
}

// Takes the engine's set-up, and no completion.
class FullQueue : public TaskQueue {
 public:
    void post(std::function<void()> task, int reserved, const std::string& name) override {
        if (name != "InitializeProxy") throw std::runtime_error("no room for " + name);
        TaskQueue::post(std::move(task), reserved, name);
    }
};

// Its owner would wait for ever for what is lost.
TEST(HTTPEngineDeathTest, CompletionThatTheExecutorRefusesStopsTheProcess) {
    RequestConfig config;
    config.headers["X-Broken"] = "two\r\nlines";
    EXPECT_DEATH(
        {
            FullQueue queue;
            const HTTPEngine engine("test", queue);
            std::make_shared<RecordingRequest>(config)->runRequest();
        },
        "no room for handle_engine_callback");
}

// What goes wrong here is found by a sanitizer: the engine thread uses an object whose end has begun.
TEST_F(HTTPEngineTransferTest, EngineMayEndWhileTransfersRun) {
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 5; ++i) server.enqueue(Reply(200));
        std::vector<std::shared_ptr<ThreadNotingRequest>> requests;
        for (int i = 0; i < 5; ++i) requests.push_back(run(get()));
        stopEngine();
        while (queue.size() > 0) queue.runNext();
        for (const auto& request : requests) EXPECT_LE(request->outcome.count(), 1U);
        useEngine(std::make_unique<HTTPEngine>("test", queue));
    }
}

}  // namespace
}  // namespace kel::http::test
