// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "Observation.h"
#include "parties/Callers.h"

namespace kel::http::simulation {

// Whoever asks when all troubles are over, and has to be served whatever has been before.
class LastCaller {
 public:
    LastCaller(World& world, Observation& observation) : world_(world), seen_(observation.last) {}

    static constexpr std::int64_t request = 1'000'000;
    // One that no script knows: it answers at once.
    static constexpr std::int64_t host = 15;

    // Asks for `url`, with a limit, and goes on until it has heard of it. Once.
    void ask(const std::string& url);

 private:
    void note(SeenOutcome outcome);

    World& world_;
    SeenRequest& seen_;
    WorldExecutor executor_;
    std::shared_ptr<Client> client_;
};

}  // namespace kel::http::simulation
