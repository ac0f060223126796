// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <vector>

#include "ko/executor.h"
#include "world/World.h"

namespace kel::http::simulation {

// An executor that runs a task when the world lets it, on the simulator's thread.
class WorldExecutor final : public ko::executor {
 public:
    void post(std::function<void()> task, int tag) override;

    bool hasTask() const { return !tasks_.empty(); }
    void runOne();
    // Its tasks are dropped, and nobody may post to it any more.
    void end();
    bool hasEnded() const { return ended_; }

 private:
    std::deque<std::function<void()>> tasks_;
    bool ended_ = false;
};

// Those of a program: some for clients and one for what the engine has completed. They outlive the engine.
class Executors {
 public:
    Executors(World& world, std::int64_t count);

    // That of a client.
    WorldExecutor& of(std::int64_t client) { return clients_[static_cast<std::size_t>(client) % clients_.size()]; }
    WorldExecutor& completions() { return completions_; }

 private:
    // Not moved, as others know their places.
    std::deque<WorldExecutor> clients_;
    WorldExecutor completions_;
};

}  // namespace kel::http::simulation
