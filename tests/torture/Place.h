// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fixture/TestHost.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/NginxServer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"
#include "torture/Scenario.h"

namespace kel::http::torture {

// Where the runs of a scenario take place: a folder, a host and, for each run anew, a server and proxies.
class Place {
 public:
    explicit Place(const Scenario& scenario);

    // Puts everything back to the beginning.
    void furnish();
    Surroundings surroundings() const;
    // A request for it, to whatever serves here, is not part of the scenario.
    std::string probeUrl() const { return surroundings().server + probe_path; }

    // Once the engine has gone: waits until the server and the proxies have seen the end of all connections.
    void awaitSilence();

    // The requests that came, as text without what differs from one run to the next, but for probes.
    std::vector<std::string> requests() const;
    std::vector<std::string> proxyRequests() const;
    // The connections that reached the server, each through a proxy where there are proxies.
    std::size_t connections() const { return connections_; }
    Files files() const;

    static constexpr const char* probe_path = "/probe";
    static constexpr const char* probe_answer = "still here";

 private:
    std::string withoutChance(const test::ReceivedRequest& request) const;
    std::vector<std::string> tlsRequests() const;

    const Scenario& scenario_;
    test::TemporaryDirectory folder_;
    test::TestHost host_;
    std::unique_ptr<test::NginxServer> nginx_;
    std::size_t nginx_lines_ = 0;
    std::size_t connections_ = 0;
    std::unique_ptr<test::ScriptedServer> server_;
    std::unique_ptr<test::CountingProxy> proxy_;
    std::unique_ptr<test::ClosedPort> refusing_;
};

}  // namespace kel::http::torture
