// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Observation.h"
#include "Script.h"
#include "kel-http/RequestConfig.h"
#include "world/World.h"

namespace kel::http::simulation {

// The server's end of a connection that speaks TLS, in front of one that does not.
std::shared_ptr<Peer> tlsPeer(World& world, const HostScript& host, std::shared_ptr<Peer> plain,
                              Observation& observation);

// What a request needs to be trusted by those servers, and to trust them.
void addIdentity(RequestConfig& config, const Script& script);

// Makes the certificates and keys of the process, if this script needs them and they are not there yet. In a world that has
// just begun, whose clock says from when they are valid.
void prepareIdentities(const Script& script);

}  // namespace kel::http::simulation
