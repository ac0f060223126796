// SPDX-License-Identifier: MIT
#include "kel-http/legacy/HTTPEngine.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>

#include "fixture/LogCapture.h"
#include "legacy/TaskQueue.h"
#include "support/AllocationFailure.h"
#include "support/Deadline.h"
#include "support/OpenDescriptors.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Mode = Engine::ProxyConfigMode;

constexpr const char* default_proxy = "http://" KEL_TEST_PROXY_HOST ":80";

// Does not take what is posted.
class RefusingExecutor : public Executor {
 public:
    void post(std::function<void()> /*task*/, int /*reserved*/, const std::string& name) override {
        throw std::runtime_error("no room for " + name);
    }
};

// Takes what is posted, and complains nevertheless.
class ComplainingQueue : public TaskQueue {
 public:
    void post(std::function<void()> task, int reserved, const std::string& name) override {
        TaskQueue::post(std::move(task), reserved, name);
        throw std::runtime_error("nearly full");
    }
};

// Has no memory for the first completions.
class ForgetfulQueue : public TaskQueue {
 public:
    void post(std::function<void()> task, int reserved, const std::string& name) override {
        if (name == "handle_engine_callback" && refused < 2) {
            ++refused;
            throw std::bad_alloc();
        }
        TaskQueue::post(std::move(task), reserved, name);
    }

    int refused = 0;
};

int enginesThreads() {
    int count = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        if (name == "CurlEngine") ++count;
    }
    return count;
}

// A thread takes its name, and leaves the list after it has been joined, in its own time.
bool comesToEnginesThreads(int count) {
    const auto latest = std::chrono::steady_clock::now() + Deadline;
    while (enginesThreads() != count) {
        if (std::chrono::steady_clock::now() > latest) return false;
        std::this_thread::yield();
    }
    return true;
}

TEST(HTTPEngineTest, SetUpOfTheProxyIsPostedUnderItsName) {
    TaskQueue queue;
    const HTTPEngine engine("test", queue);
    ASSERT_EQ(queue.size(), 1U);
    const TaskQueue::Task task = queue.take();
    EXPECT_EQ(task.name, "InitializeProxy");
    EXPECT_EQ(task.reserved, 0);
}

TEST(HTTPEngineTest, ProxyIsThatOfEveryEngineUntilTheTaskHasRun) {
    TaskQueue queue;
    const HTTPEngine engine("test", queue);
    EXPECT_EQ(engine.getProxyUrl(), "");
    EXPECT_EQ(engine.getProxyMode(), Mode::Off);
}

TEST(HTTPEngineTest, DefaultProxyIsKnownAndSwitchedOffOnceTheTaskHasRun) {
    TaskQueue queue;
    const HTTPEngine engine("test", queue);
    queue.runNext();
    EXPECT_EQ(engine.getProxyUrl(), default_proxy);
    EXPECT_EQ(engine.getProxyMode(), Mode::Off);
    EXPECT_EQ(engine.getProxyUser(), "");
    EXPECT_EQ(engine.getProxyPassword(), "");
    EXPECT_EQ(queue.size(), 0U);
}

TEST(HTTPEngineTest, TaskReplacesAProxyThatWasSetBeforeItRan) {
    TaskQueue queue;
    HTTPEngine engine("test", queue);
    engine.setProxyConfig(Mode::Manual, "http://other:3128", "user", "password");
    queue.runNext();
    EXPECT_EQ(engine.getProxyUrl(), default_proxy);
    EXPECT_EQ(engine.getProxyMode(), Mode::Off);
    EXPECT_EQ(engine.getProxyUser(), "");
    EXPECT_EQ(engine.getProxyPassword(), "");
}

TEST(HTTPEngineTest, DefaultProxyCanBeSwitchedOnAndOff) {
    TaskQueue queue;
    HTTPEngine engine("test", queue);
    queue.runNext();
    engine.setProxyConfig(Mode::Manual, engine.getProxyUrl(), "", "");
    EXPECT_EQ(engine.getProxyMode(), Mode::Manual);
    engine.set_http_proxy();
    EXPECT_EQ(engine.getProxyUrl(), default_proxy);
    EXPECT_EQ(engine.getProxyMode(), Mode::Off);
}

TEST(HTTPEngineTest, StartIsLoggedWithTheCallersName) {
    TaskQueue queue;
    const LogCapture log("HTTPEngine", 3);
    const HTTPEngine engine("updater", queue);
    ASSERT_THAT(log.lines(), testing::SizeIs(1));
    EXPECT_EQ(log.lines()[0].level, 3);
    EXPECT_EQ(log.lines()[0].text, "HTTPEngine: updater Curl Engine instantiated");
}

TEST(HTTPEngineTest, StartIsNotLoggedBelowItsLevel) {
    TaskQueue queue;
    const LogCapture log("HTTPEngine", 2);
    const HTTPEngine engine("updater", queue);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(HTTPEngineTest, IsTheEngineOfTheProcess) {
    TaskQueue queue;
    std::unique_ptr<Engine> engine = std::make_unique<HTTPEngine>("test", queue);
    EXPECT_EQ(Engine::getEngine(), engine.get());
    engine.reset();
    EXPECT_FALSE(Engine::hasEngine());
}

TEST(HTTPEngineTest, CallbackIsPostedUnderItsNameAndNotCalled) {
    TaskQueue queue;
    HTTPEngine engine("test", queue);
    queue.take();
    int calls = 0;
    engine.handle_engine_callback([&calls] { ++calls; });
    EXPECT_EQ(calls, 0);
    const TaskQueue::Task task = queue.take();
    EXPECT_EQ(task.name, "handle_engine_callback");
    EXPECT_EQ(task.reserved, 0);
    task.run();
    EXPECT_EQ(calls, 1);
}

TEST(HTTPEngineTest, CallersFunctionMayGoAwayAtOnce) {
    TaskQueue queue;
    HTTPEngine engine("test", queue);
    queue.take();
    const auto word = std::make_shared<std::string>("still here");
    std::string heard;
    auto callback = std::make_unique<std::function<void()>>([copy = *word, &heard] { heard = copy; });
    engine.handle_engine_callback(*callback);
    callback.reset();
    queue.runNext();
    EXPECT_EQ(heard, "still here");
}

TEST(HTTPEngineTest, ExecutorThatRefusesLeavesNoEngineAndNoThread) {
    RefusingExecutor refusing;
    const OpenDescriptors descriptors;
    EXPECT_THROW(HTTPEngine("test", refusing), std::runtime_error);
    EXPECT_FALSE(Engine::hasEngine());
    EXPECT_TRUE(comesToEnginesThreads(0));
    EXPECT_THAT(descriptors.opened(), IsEmpty());

    TaskQueue queue;
    const HTTPEngine next("test", queue);
    EXPECT_TRUE(Engine::hasEngine());
    EXPECT_TRUE(comesToEnginesThreads(1));
}

TEST(HTTPEngineTest, ExceptionOfTheExecutorArrivesAsItIs) {
    RefusingExecutor refusing;
    const LogCapture log("HTTPEngine", 3);
    try {
        const HTTPEngine engine("test", refusing);
        FAIL() << "an engine";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no room for InitializeProxy");
    }
    EXPECT_THAT(log.texts("HTTPEngine"), ElementsAre("HTTPEngine: test Curl Engine instantiated"));
}

TEST(HTTPEngineTest, DefaultProxyIsKnownThoughAnAllocationFails) {
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    TaskQueue queue;
    HTTPEngine engine("test", queue);
    failEachAllocation([&](std::size_t succeeding) {
        engine.setProxyConfig(Mode::Manual, "http://another", "user", "password");
        std::size_t refused = 0;
        {
            const FailAllocation failure(succeeding + 1);
            engine.set_http_proxy();
            refused = failure.refused();
        }
        EXPECT_EQ(engine.getProxyUrl(), default_proxy);
        EXPECT_EQ(engine.getProxyMode(), Mode::Off);
        return refused;
    });
}

TEST(HTTPEngineTest, CompletionIsPostedAgainWhenTheExecutorFindsNoMemory) {
    ForgetfulQueue queue;
    HTTPEngine engine("test", queue);
    queue.runNext();
    bool ran = false;
    engine.handle_engine_callback([&ran] { ran = true; });
    EXPECT_EQ(queue.refused, 2);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(queue.runNext(), "handle_engine_callback");
    EXPECT_TRUE(ran);
}

TEST(HTTPEngineTest, CompletionIsPostedOnceThoughAnAllocationFails) {
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    TaskQueue queue;
    HTTPEngine engine("test", queue);
    queue.runNext();
    const std::function<void()> completion = [kept = std::make_shared<int>()] {};
    failEachAllocation([&](std::size_t succeeding) {
        std::size_t refused = 0;
        {
            const FailAllocation failure(succeeding + 1);
            engine.handle_engine_callback(completion);
            refused = failure.refused();
        }
        EXPECT_EQ(queue.size(), 1U);
        EXPECT_EQ(queue.runNext(), "handle_engine_callback");
        return refused;
    });
}

TEST(HTTPEngineTest, TaskOfAnEngineThatNeverCameAboutDoesNothing) {
    ComplainingQueue queue;
    EXPECT_THROW(HTTPEngine("test", queue), std::runtime_error);
    const Engine bystander([](const std::function<void()>& completion) { completion(); });
    EXPECT_EQ(queue.runNext(), "InitializeProxy");
    EXPECT_EQ(bystander.getProxyUrl(), "");
}

TEST(HTTPEngineTest, TaskThatOutlivesTheEngineDoesNothing) {
    TaskQueue queue;
    std::make_unique<HTTPEngine>("test", queue).reset();
    const Engine bystander([](const std::function<void()>& completion) { completion(); });
    const LogCapture log("HttpClient", 9);
    EXPECT_EQ(queue.runNext(), "InitializeProxy");
    EXPECT_EQ(bystander.getProxyUrl(), "");
    EXPECT_FALSE(log.contains("setProxyConfig"));
}

// What goes wrong here is found by a sanitizer, or ends the process.
TEST(HTTPEngineTest, TaskMayRunWhileTheEngineEnds) {
    for (int round = 0; round < 100; ++round) {
        TaskQueue queue;
        auto engine = std::make_unique<HTTPEngine>("test", queue);
        std::thread executor([&queue] { queue.runNext(); });
        engine.reset();
        executor.join();
        EXPECT_FALSE(Engine::hasEngine());
    }
}

}  // namespace
}  // namespace kel::http::test
