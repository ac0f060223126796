// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

// Programs of this build may be another machine's: they run under an emulator then, and can not be executed directly.
namespace kel::http::test {

// Whether they do. How much memory a program takes can not be measured there.
bool underEmulator();

// The words that start `program`, one of this build, which stands beside the one that runs: its path, behind the emulator's
// own words if there is one. The same tests run beside programs of other builds, so no path is compiled in.
std::vector<std::string> commandOf(const std::string& program);

// How death tests get their process: by executing this program anew, since a fork of one with threads may hang and one
// with an engine would lack its thread. An emulator is not ours to execute anew; there it is the fork.
const char* deathTestStyle();

}  // namespace kel::http::test
