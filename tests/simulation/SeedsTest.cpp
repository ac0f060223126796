// SPDX-License-Identifier: MIT
#include "runs/Seeds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "runs/Child.h"

namespace kel::http::simulation {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

Verdict well(std::uint64_t seed) {
    Verdict verdict;
    verdict.hash = seed;
    verdict.requests = 1;
    verdict.time = std::chrono::seconds(1);
    verdict.states.push_back(seed % 2 == 0 ? "even" : "odd");
    return verdict;
}

SeedRun runOf(std::uint64_t last, std::function<Verdict(std::uint64_t)> live) {
    SeedRun run;
    run.last = last;
    run.row = 10;
    run.live = std::move(live);
    return run;
}

TEST(SeedsTest, EachSeedIsLivedOnce) {
    const Tally tally = liveSeeds(runOf(95, well));
    EXPECT_EQ(tally.seeds, 95U);
    EXPECT_EQ(tally.requests, 95);
    EXPECT_EQ(tally.time, std::chrono::seconds(95));
    EXPECT_EQ(tally.states, (Reached{{"even", 47}, {"odd", 48}}));
    EXPECT_THAT(tally.findings, SizeIs(0));
}

TEST(SeedsTest, TheHashIsTheSameWithAnyNumberOfProcesses) {
    SeedRun run = runOf(95, well);
    const std::uint64_t hash = liveSeeds(run).hash;
    run.jobs = 3;
    run.row = 7;
    EXPECT_EQ(liveSeeds(run).hash, hash);
    EXPECT_NE(liveSeeds(runOf(94, well)).hash, hash);
}

TEST(SeedsTest, ABrokenPromiseIsAFinding) {
    const Tally tally = liveSeeds(runOf(30, [](std::uint64_t seed) {
        Verdict verdict = well(seed);
        if (seed == 17) verdict.faults = {"first\nfault", "second"};
        return verdict;
    }));
    EXPECT_EQ(tally.seeds, 30U);
    ASSERT_THAT(tally.findings, SizeIs(1));
    EXPECT_EQ(tally.findings[0].seed, 17U);
    EXPECT_THAT(tally.findings[0].faults, ElementsAre("first fault", "second"));
}

TEST(SeedsTest, ACrashIsAFindingAndTheOthersGoOn) {
    const Tally tally = liveSeeds(runOf(30, [](std::uint64_t seed) {
        if (seed % 10 != 4) return well(seed);
        std::fputs("something\nAssertion 'everything is fine' failed\n", stderr);
        if (seed < 10) std::abort();
        _exit(7);
    }));
    EXPECT_EQ(tally.seeds, 30U);
    ASSERT_THAT(tally.findings, SizeIs(3));
    EXPECT_THAT(tally.findings[0].faults, ElementsAre("dies of Aborted: Assertion 'everything is fine' failed"));
    EXPECT_THAT(tally.findings[0].errors, HasSubstr("something"));
    EXPECT_THAT(tally.findings[1].faults, ElementsAre(StartsWith("dies of exit status 7: ")));
}

TEST(SeedsTest, AnExceptionIsAFinding) {
    const Tally tally =
        liveSeeds(runOf(1, [](std::uint64_t) -> Verdict { throw std::runtime_error("no such world"); }));
    ASSERT_THAT(tally.findings, SizeIs(1));
    EXPECT_THAT(tally.findings[0].faults, ElementsAre(HasSubstr("no such world")));
}

TEST(SeedsTest, AWorldWithoutAnEndIsAFindingAndTheOthersGoOn) {
    SeedRun run = runOf(12, [](std::uint64_t seed) {
        while (seed == 5) pause();
        return well(seed);
    });
    run.patience = std::chrono::seconds(1);
    const Tally tally = liveSeeds(run);
    EXPECT_EQ(tally.seeds, 12U);
    ASSERT_THAT(tally.findings, SizeIs(1));
    EXPECT_EQ(tally.findings[0].seed, 5U);
    EXPECT_THAT(tally.findings[0].faults, ElementsAre("does not end within 1 s"));
}

TEST(SeedsTest, WhatFailsBehindOthersOnlySaysSo) {
    int lived = 0;
    const Tally tally = liveSeeds(runOf(20, [&lived](std::uint64_t seed) {
        Verdict verdict = well(seed);
        if (++lived > 1 && seed == 13) verdict.faults = {"spoilt"};
        return verdict;
    }));
    ASSERT_THAT(tally.findings, SizeIs(1));
    EXPECT_THAT(tally.findings[0].faults, ElementsAre("spoilt (behind others only, from seed 11 on)"));
}

TEST(SeedsTest, ARunThatHasEnoughBeginsNoFurtherRow) {
    SeedRun run = runOf(1000, well);
    run.enough = [](const Tally& tally) { return tally.states.size() == 2; };
    EXPECT_EQ(liveSeeds(run).seeds, 10U);
}

TEST(SeedsTest, MemoryThatIsLeftBehindIsAFindingWhereSomebodyLooksForIt) {
    if (!Child::looksForLeaks()) GTEST_SKIP() << "Without LeakSanitizer nobody does";
    const Tally tally = liveSeeds(runOf(10, [](std::uint64_t seed) {
        [[maybe_unused]] void* volatile lost = seed == 3 ? std::malloc(100) : nullptr;
        lost = nullptr;
        return well(seed);
    }));
    EXPECT_THAT(tally.findings, testing::Contains(Field(&Finding::seed, 3U)));
}

}  // namespace
}  // namespace kel::http::simulation
