// SPDX-License-Identifier: MIT
#pragma once

#include <future>
#include <memory>

#include "kel-http/curl/Engine.h"

namespace kel::http::test {

// Keeps the engine thread busy while it lives. What is queued meanwhile runs afterwards as one batch.
class EngineHold {
 public:
    explicit EngineHold(Engine& engine) {
        const auto held = std::make_shared<std::promise<void>>();
        engine.queueRequest([held, gate = gate_.get_future().share()] {
            held->set_value();
            gate.wait();
        });
        held->get_future().wait();
    }
    ~EngineHold() { gate_.set_value(); }
    EngineHold(const EngineHold&) = delete;
    EngineHold& operator=(const EngineHold&) = delete;

 private:
    std::promise<void> gate_;
};

}  // namespace kel::http::test
