// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "Options.h"
#include "StopSignals.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"

namespace kel::http::tool {

// What sends requests, with this thread as the one that callbacks come on. The options tell which proxies are used.
//
// Life: when it has ended no other thread is left, and what was still running has ended without a word.
class Session {
 public:
    explicit Session(const Options& options);

    Client& client() { return *client_; }

    // Waits for results, but no longer than `longest` if that is given, and runs the callbacks. True: a stop signal has
    // come. From then on signals have their usual effect, so that a second Ctrl-C ends the process at once.
    bool serve(std::optional<std::chrono::milliseconds> longest = std::nullopt);

 private:
    bool wait(std::optional<std::chrono::milliseconds> longest) const;

    // From the last to the first: the engine's thread posts to the executor until it has ended.
    ko::loop_executor executor_;
    std::optional<StopSignals> signals_;
    Engine engine_;
    const std::shared_ptr<Client> client_;
};

}  // namespace kel::http::tool
