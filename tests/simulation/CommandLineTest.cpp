// SPDX-License-Identifier: MIT
#include "runs/CommandLine.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kel::http::simulation {
namespace {

using Command = CommandLine::Command;

TEST(SimulationCommandLineTest, RangesHaveABeginningAndAnEnd) {
    const CommandLine line = parseCommandLine({"--seeds", "3..2000", "--jobs", "4"});
    EXPECT_EQ(line.command, Command::seeds);
    EXPECT_EQ(line.first, 3U);
    EXPECT_EQ(line.last, 2000U);
    EXPECT_EQ(line.jobs, 4);
    EXPECT_EQ(parseCommandLine({"--seeds", "17"}).last, 17U);
}

TEST(SimulationCommandLineTest, WhatIsNoSeedIsAFile) {
    EXPECT_EQ(parseCommandLine({"--shrink", "12"}).first, 12U);
    EXPECT_EQ(parseCommandLine({"--shrink", "12"}).file, "");
    EXPECT_EQ(parseCommandLine({"--shrink", "12.script"}).file, "12.script");
    EXPECT_EQ(parseCommandLine({"--script", "12"}).file, "12");
}

TEST(SimulationCommandLineTest, NothingAsksForHelp) {
    EXPECT_EQ(parseCommandLine({}).command, Command::help);
    EXPECT_EQ(parseCommandLine({"--seeds", "1..2", "--help"}).command, Command::help);
}

TEST(SimulationCommandLineTest, MistakesAreRefused) {
    EXPECT_THROW(parseCommandLine({"--seeds"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--seeds", "2..1"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--seeds", "1-2"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--seeds", "1..2", "--jobs", "0"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--seeds", "1..2", "--replay", "1"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--replay", "x"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--sedes", "1"}), std::invalid_argument);
    EXPECT_THROW(parseCommandLine({"--jobs", "2"}), std::invalid_argument);
}

}  // namespace
}  // namespace kel::http::simulation
