// SPDX-License-Identifier: MIT
#include "parties/Executors.h"

#include <algorithm>
#include <utility>

namespace kel::http::simulation {
namespace {

void addTo(World& world, const char* name, WorldExecutor& executor) {
    world.add(
        {name, [&executor] { return executor.hasTask(); }, [] { return Never; }, [&executor] { executor.runOne(); }});
}

}  // namespace

void WorldExecutor::post(std::function<void()> task, int /*tag*/) {
    if (ended_) World::current()->violations.emplace_back("a task is posted to an executor that has ended");
    tasks_.push_back(std::move(task));
}

void WorldExecutor::end() {
    ended_ = true;
    const std::deque<std::function<void()>> dropped = std::exchange(tasks_, {});
}

void WorldExecutor::runOne() {
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
}

Executors::Executors(World& world, std::int64_t count) {
    for (std::int64_t number = std::max<std::int64_t>(count, 1); number > 0; --number) {
        addTo(world, "executor", clients_.emplace_back());
    }
    addTo(world, "completions", completions_);
}

}  // namespace kel::http::simulation
