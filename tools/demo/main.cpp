// SPDX-License-Identifier: MIT
// kel-http-demo: real requests of every kind against a server inside this program.
#include <fmt/format.h>

#include <cstdlib>
#include <exception>

#include "OriginServer.h"
#include "Report.h"
#include "Scenario.h"
#include "SentFiles.h"
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
    SentFiles files;
    Session session(server);
    Report report;
    fmt::print("kel-http sends to its own server at {}\n\n{}", server.url("/"), Report::heading());
    for (const Scenario& scenario : all_scenarios(server, files)) {
        fmt::print("{}", report.row(scenario, session.run(scenario)));
        std::fflush(stdout);
    }
    fmt::print("\n{}", report.summary());
    return report.as_expected();
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
