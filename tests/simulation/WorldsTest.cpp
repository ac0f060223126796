// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>

#include "runs/Seeds.h"
#include "support/Emulator.h"
#include "support/Instruments.h"

// No promise is broken in so many worlds. tools/simulate lives any number of them.
namespace kel::http::simulation {
namespace {

constexpr std::uint64_t parts = 8;

// Of all parts together.
std::uint64_t seeds() {
    if (test::underEmulator()) return 104;
    return test::underSanitizer() ? 304 : 2000;
}

std::string sentences(const Finding& finding) {
    std::string text = finding.errors;
    for (const std::string& fault : finding.faults) text += fault + '\n';
    return text + "tools/simulate --replay " + std::to_string(finding.seed) + " tells what happens, --shrink " +
           std::to_string(finding.seed) + " cuts it down";
}

SeedRun gateOf(std::uint64_t first, std::uint64_t last) {
    warmUp();
    SeedRun run;
    run.first = first;
    run.last = last;
    run.live = liveSeed;
    run.onFinding = [](const Finding& finding) {
        ADD_FAILURE() << "seed " << finding.seed << ": " << sentences(finding);
    };
    return run;
}

class WorldsTest : public testing::TestWithParam<std::uint64_t> {};

TEST_P(WorldsTest, NoPromiseIsBroken) {
    const std::uint64_t each = seeds() / parts;
    const std::uint64_t first = GetParam() * each + 1;
    EXPECT_EQ(liveSeeds(gateOf(first, first + each - 1)).seeds, each);
}

INSTANTIATE_TEST_SUITE_P(Seeds, WorldsTest, testing::Range<std::uint64_t>(0, parts));

// What never happens is never checked.
TEST(StatesTest, EachInterestingStateIsReached) {
    if (seeds() < 2000) GTEST_SKIP() << "Too few worlds are lived here";
    SeedRun run = gateOf(1, seeds());
    run.enough = [](const Tally& tally) { return missingStates(tally.states).empty(); };
    for (const std::string& state : missingStates(liveSeeds(run).states)) ADD_FAILURE() << "never reached: " << state;
}

}  // namespace
}  // namespace kel::http::simulation
