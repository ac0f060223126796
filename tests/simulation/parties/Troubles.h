// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "Script.h"
#include "world/World.h"

namespace kel::http::simulation {

// What befalls the network, the process and its clock, when a script says so.
class Troubles {
 public:
    Troubles(World& world, const Script& script);

    // Whatever has not ended yet ends now.
    void end();

 private:
    struct Step {
        Time at;
        std::function<void()> act;
    };

    void plan(std::int64_t at, std::function<void()> act);
    void plan(const TroubleScript& trouble);
    void begin(const TroubleScript& trouble);
    void end(const TroubleScript& trouble);
    void eachLinkTo(std::int64_t host, const std::function<void(Link&)>& deed);
    bool isCutOff(const Address& address) const;

    World& world_;
    const Script& script_;
    const Time beginning_;
    std::deque<Step> plan_;
};

}  // namespace kel::http::simulation
