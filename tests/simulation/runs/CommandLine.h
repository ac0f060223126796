// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::http::simulation {

// What the program is asked to do.
struct CommandLine {
    enum class Command { help, seeds, replay, script, shrink };

    Command command = Command::help;
    // Of seeds; of replay and shrink the first one.
    std::uint64_t first = 1;
    std::uint64_t last = 1;
    // A script's file, "-" for standard input; empty: a seed is meant.
    std::string file;
    std::int64_t jobs = 1;
    std::chrono::seconds patience{60};
    std::int64_t tries = 3000;
    // Whether each of the interesting states has to be reached.
    bool states = false;
};

constexpr const char* usage =
    "usage: simulate --seeds FIRST..LAST [--jobs N] [--patience SECONDS] [--states]\n"
    "       simulate --replay SEED\n"
    "       simulate --script FILE\n"
    "       simulate --shrink SEED|FILE [--tries N] [--patience SECONDS]\n"
    "\n"
    "  --seeds FIRST..LAST  lives the worlds of these seeds\n"
    "  --replay SEED        lives one and tells what happens: time, party, event\n"
    "  --script FILE        the same with a script; - is standard input\n"
    "  --shrink SEED|FILE   cuts a world that fails down to the smallest one that still does\n"
    "  --jobs N             so many processes at a time; as many as there are processors by default\n"
    "  --patience SECONDS   a world that takes longer hangs; 60 by default\n"
    "  --states             fails if one of the interesting states is not reached\n"
    "  --tries N            worlds lived in order to find a smaller one; 3000 by default\n"
    "\n"
    "Exit status: 0 when all is well, 1 when a promise is broken, 2 when this can not be done.\n";

// Throws std::invalid_argument, with a sentence for whoever has typed it.
CommandLine parseCommandLine(const std::vector<std::string>& words);

}  // namespace kel::http::simulation
