// SPDX-License-Identifier: MIT
#pragma once

#include "Script.h"
#include "world/Time.h"

namespace kel::http::simulation {

// Whether so much happens to a request that of its outcome only this is known: at most a single one, and in time.
bool isMurky(const Script& script, const RequestScript& request);

// Whether servers, proxies or the network may bring other bytes than the replies of its exchanges have.
bool isMurkyOutside(const Script& script, const RequestScript& request);

// When something befalls the network or the process, which may befall any request then; Never: nothing does.
Time firstTrouble(const Script& script);

// Whether nothing of it may reach a server: it fails before.
bool isRefused(const RequestScript& request);

}  // namespace kel::http::simulation
