// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineQueue.h"

#include <stdexcept>

#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;

class EngineQueueTest : public ::testing::Test {
 protected:
    void push(
        const std::string& name, const std::function<void()>& work = [] {}) {
        queue.push([this, name = std::string(name), work = std::function<void()>(work)] {
            done.push_back(name);
            work();
        });
    }

    logging::Logger& log = *logging::getLogger("HttpClient", 0);
    const EngineWait waiting{log};
    EngineQueue queue{waiting, log};
    std::vector<std::string> done;
};

TEST_F(EngineQueueTest, TasksRunInOrderAndOnce) {
    push("a");
    push("b");
    queue.runTasks();
    queue.runTasks();
    EXPECT_THAT(done, ElementsAre("a", "b"));
}

TEST_F(EngineQueueTest, WhatATaskQueuesWaitsForTheNextPass) {
    push("a", [this] { push("c"); });
    push("b");
    queue.runTasks();
    EXPECT_THAT(done, ElementsAre("a", "b"));
    queue.runTasks();
    EXPECT_THAT(done, ElementsAre("a", "b", "c"));
}

TEST_F(EngineQueueTest, ATaskThatThrowsFailsAlone) {
    push("a", [] { throw std::logic_error("bug"); });
    push("b", [] { throw 4711; });
    push("c");
    queue.runTasks();
    EXPECT_THAT(done, ElementsAre("a", "b", "c"));
}

TEST_F(EngineQueueTest, WhatATaskHoldsIsReleasedBeforeTheNextOneRuns) {
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = held;
    queue.push([held = std::move(held)] {});
    bool released = false;
    push("b", [&] { released = watched.expired(); });
    queue.runTasks();
    EXPECT_TRUE(released);
}

}  // namespace
}  // namespace kel::http::test
