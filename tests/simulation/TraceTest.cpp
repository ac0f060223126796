// SPDX-License-Identifier: MIT
#include "world/Trace.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "runs/Seeds.h"
#include "support/Emulator.h"

namespace kel::http::simulation {
namespace {

constexpr std::uint64_t some_seeds = 40;

Tally liveSome(std::uint64_t row) {
    SeedRun run;
    run.last = some_seeds;
    run.row = row;
    run.live = liveSeed;
    return liveSeeds(run);
}

// What a program says that is started anew, at other addresses.
std::string outputOf(const std::string& arguments) {
    std::string command;
    for (const std::string& word : test::commandOf("simulation")) command += '\'' + word + "' ";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen((command + arguments).c_str(), "r"), &pclose);
    std::string text;
    std::array<char, 1024> part{};
    while (pipe && std::fgets(part.data(), part.size(), pipe.get()) != nullptr) text += part.data();
    return text;
}

TEST(TraceTest, EachPartOfAnEventCounts) {
    const auto hash = [](Time time, const char* party, const char* event) {
        Trace trace;
        trace.note(time, party, event);
        return trace.hash();
    };
    const std::uint64_t usual = hash(Time(1), "server", "answers");
    EXPECT_EQ(hash(Time(1), "server", "answers"), usual);
    EXPECT_NE(hash(Time(2), "server", "answers"), usual);
    EXPECT_NE(hash(Time(1), "socket", "answers"), usual);
    EXPECT_NE(hash(Time(1), "server", "closes"), usual);
}

TEST(TraceTest, WhatHappensInAnyOrderCountsAllTheSame) {
    const auto hash = [](const char* one, const char* other) {
        Trace trace;
        trace.beginAnyOrder();
        trace.note(Time(1), "socket", one);
        trace.note(Time(1), "socket", other);
        trace.endAnyOrder();
        return trace.hash();
    };
    EXPECT_EQ(hash("one", "two"), hash("two", "one"));
    EXPECT_NE(hash("one", "two"), hash("one", "three"));
}

TEST(TraceTest, AWorldIsTheSameAgainAndBehindOthers) {
    warmUp();
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
        const std::uint64_t hash = liveSeed(seed).hash;
        EXPECT_EQ(liveSeed(seed).hash, hash) << "seed " << seed;
        liveSeed(seed + 100);
        EXPECT_EQ(liveSeed(seed).hash, hash) << "seed " << seed;
    }
}

TEST(TraceTest, AWorldIsTheSameAloneAndInARow) {
    const Tally alone = liveSome(1);
    EXPECT_EQ(alone.seeds, some_seeds);
    EXPECT_EQ(liveSome(some_seeds).hash, alone.hash);
}

TEST(TraceTest, AWorldIsTheSameInEachProcess) {
    const std::string arguments = "--seeds 1.." + std::to_string(some_seeds);
    const std::string said = outputOf(arguments);
    EXPECT_NE(said.find("hash "), std::string::npos) << said;
    EXPECT_EQ(outputOf(arguments), said);
    EXPECT_EQ(outputOf(arguments + " --jobs 3"), said);
    std::array<char, 32> hash{};
    std::snprintf(hash.data(), hash.size(), "hash %016llx", static_cast<unsigned long long>(liveSome(10).hash));
    EXPECT_NE(said.find(hash.data()), std::string::npos) << said << hash.data();
}

TEST(TraceTest, AReplayTellsWhatHappens) {
    const std::string said = outputOf("--script - <<'END'\nreply status=404\nrequest\nEND");
    EXPECT_NE(said.find("caller     starts 0"), std::string::npos) << said;
    EXPECT_NE(said.find("server     0 is asked: GET /0/0 HTTP/1.1"), std::string::npos) << said;
    EXPECT_NE(said.find("caller     hears of 0: status 404"), std::string::npos) << said;
}

}  // namespace
}  // namespace kel::http::simulation
