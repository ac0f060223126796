// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Observation.h"
#include "Script.h"
#include "world/World.h"

namespace kel::http::simulation {

// The servers of a script: they answer "/EXCHANGE/REQUEST" as it says, and note who has asked.
class HttpServers {
 public:
    HttpServers(World& world, const Script& script, Observation& observation);

    static std::uint32_t ipOf(std::int64_t host) { return 0x0A000001U + static_cast<std::uint32_t>(host); }
    // "http://10.0.0.1/EXCHANGE/REQUEST", or with the host's name.
    static std::string url(const Script& script, std::int64_t host, std::int64_t exchange, std::int64_t request);

    // From now on nothing goes wrong any more, if that has not come before: whoever connects is accepted, whoever asks is
    // answered in full.
    void calm();
    bool isCalm() const { return world_.now() >= calm_; }

 private:
    friend class HttpPeer;
    Network::Acceptance accept(std::int64_t host, const Link& link);
    // Which answer it is, counted for each request and exchange.
    std::size_t arrive(Arrival arrival);

    World& world_;
    const Script& script_;
    Observation& observation_;
    std::map<std::pair<std::int64_t, std::int64_t>, std::size_t> arrivals_;
    std::int64_t connections_ = 0;
    Time calm_ = Never;
};

}  // namespace kel::http::simulation
