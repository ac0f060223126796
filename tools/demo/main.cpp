// SPDX-License-Identifier: MIT
// kel-http-demo: real requests of every kind against a server inside this program.
#include <fmt/format.h>

#include <cstdlib>
#include <exception>

#include "DemoFolder.h"
#include "Downloads.h"
#include "EventLoop.h"
#include "OriginServer.h"
#include "Report.h"
#include "Scenario.h"
#include "Session.h"

namespace kel::http::demo {
namespace {

// The server is on this machine; a proxy could not reach it.
void clear_proxies() {
    for (const char* const name :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        unsetenv(name);
    }
}

bool run() {
    OriginServer server;
    DemoFolder folder;
    EventLoop loop;
    Session session(loop, server);
    Report report;
    fmt::print("kel-http sends to its own server at {}\n\n{}", server.url("/"), Report::heading());
    for (const Scenario& scenario : all_scenarios(server, folder)) {
        fmt::print("{}", report.row(scenario, session.run(scenario)));
        std::fflush(stdout);
    }
    fmt::print("\n{}\n", report.summary());
    std::fflush(stdout);
    const bool downloaded = Downloads(loop, server, folder).run();
    const bool as_expected = report.as_expected() && downloaded;
    fmt::print("\n{}\n", as_expected ? "All of it went as expected." : "Not all of it went as expected.");
    return as_expected;
}

}  // namespace
}  // namespace kel::http::demo

int main() {
    try {
        kel::http::demo::clear_proxies();
        return kel::http::demo::run() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        fmt::print(stderr, "kel-http-demo: {}\n", error.what());
        return EXIT_FAILURE;
    }
}
