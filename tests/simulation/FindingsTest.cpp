// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "Life.h"
#include "Script.h"
#include "runs/Seeds.h"

// Worlds that broke a promise once, each cut down to what it took: what --shrink prints goes here, under a name that says
// what happened.
namespace kel::http::simulation {
namespace {

void expectNoFault(const std::string& text) {
    const Finding finding = liveAlone(parse(text), std::chrono::seconds(60));
    for (const std::string& fault : finding.faults) ADD_FAILURE() << fault << '\n' << finding.errors;
    if (!finding.faults.empty()) {
        ADD_FAILURE() << "What happens: tools/simulate --script - <<'END'\n" << text << "END";
    }
}

// Not findings, but how they look.
TEST(SimulationFindingTest, PauseBehindARedirectIsNoObstacle) {
    expectNoFault(R"(
reply status=302 location=1
reply exchange=1 body=3000 piece=500 gap=100000
request
action at=100000 deed=pause
action at=900000 deed=resume
)");
}

// libcurl 7.88 asks to be called again only after half of the time that is left.
TEST(SimulationFindingTest, AnAddressThatRefusesIsFollowedByTheNextOneAtOnce) {
    const Observation seen = live(parse("host named=1 deadAddresses=3\nrequest timeout=60000\n"));
    const SeenRequest& request = seen.requests.at(0);
    ASSERT_EQ(request.outcomes.size(), 1U);
    EXPECT_LT(request.outcomes.front().at - request.startedAt, std::chrono::milliseconds(50));
}

}  // namespace
}  // namespace kel::http::simulation
