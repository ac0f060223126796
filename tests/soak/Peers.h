// SPDX-License-Identifier: MIT
#pragma once

#include "soak/Kind.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/NginxServer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::soak {

// Servers and proxies of the mixture, good and broken ones, and a folder. Threads: the constructor's.
class Peers {
 public:
    Peers();

    Addresses addresses() const;
    // To be called every now and then: ends the connections of the broken server.
    void tick();
    // What stands in the folder.
    std::vector<std::string> files() const { return folder_.names(); }

 private:
    test::TemporaryDirectory folder_;
    test::NginxServer nginx_;
    test::ScriptedServer scripted_;
    test::ScriptedServer broken_;
    test::ClosedPort closed_;
    test::CountingProxy refusing_{test::CountingProxy::Behaviour::Refuse};
    test::CountingProxy closing_{test::CountingProxy::Behaviour::Close};
    test::CountingProxy proxy_;
};

}  // namespace kel::http::soak
