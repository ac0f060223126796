// SPDX-License-Identifier: MIT
#include "Executor.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "ko/executor.h"

namespace {

class RecordingExecutor final : public Executor {
 public:
    void post(std::function<void()> task, int reserved, const std::string& name) override {
        tasks.push_back(std::move(task));
        names.push_back(name);
        last_reserved = reserved;
    }

    std::vector<std::function<void()>> tasks;
    std::vector<std::string> names;
    int last_reserved = -1;
};

class TagKeepingExecutor final : public ko::executor {
 public:
    explicit TagKeepingExecutor(std::vector<int>& tags) : tags_(tags) {}
    void post(std::function<void()> /*task*/, int tag) override { tags_.push_back(tag); }

 private:
    std::vector<int>& tags_;
};

TEST(ExecutorTest, OlderInterfaceCanBeImplementedByACaller) {
    RecordingExecutor recording;
    Executor& executor = recording;
    bool ran = false;
    executor.post([&ran] { ran = true; }, 0, "InitializeProxy");
    EXPECT_FALSE(ran);
    recording.tasks.at(0)();
    EXPECT_TRUE(ran);
    EXPECT_EQ("InitializeProxy", recording.names.at(0));
    EXPECT_EQ(0, recording.last_reserved);
}

TEST(ExecutorTest, TagsReachTheImplementationThroughTheInterface) {
    std::vector<int> tags;
    const std::unique_ptr<ko::executor> executor = std::make_unique<TagKeepingExecutor>(tags);
    executor->post([] {}, 4035);
    executor->post([] {}, 4037);
    EXPECT_EQ((std::vector<int>{4035, 4037}), tags);
}

}  // namespace
