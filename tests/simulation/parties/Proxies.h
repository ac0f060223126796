// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "Observation.h"
#include "Script.h"
#include "kel-http/RequestConfig.h"
#include "world/World.h"

namespace kel::http {
class Engine;
}

namespace kel::http::simulation {

// The proxies of a script: they are asked for tunnels to the servers, make or refuse them, and note who has asked.
class Proxies {
 public:
    Proxies(World& world, const Script& script, Observation& observation);

    // Whose address this is; 0: nobody's.
    static std::int64_t at(std::uint32_t ip);
    // As callers name it, with the credentials that the script gives them.
    static std::string url(const ProxyScript& proxy);

 private:
    friend class ProxyPeer;
    Network::Acceptance accept(std::int64_t id);

    World& world_;
    const Script& script_;
    Observation& observation_;
};

// The proxies that the engine is told of, and those of a request, with its credentials for the server.
void setUpProxies(Engine& engine, const Script& script);
void addNetwork(RequestConfig& config, const Script& script, const RequestScript& request);

}  // namespace kel::http::simulation
