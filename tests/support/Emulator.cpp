// SPDX-License-Identifier: MIT
#include "Emulator.h"

#include <filesystem>
#include <sstream>

namespace kel::http::test {
namespace {

// Separated by blanks.
constexpr const char* Words = KEL_TEST_EMULATOR;

// Looked up before any test has begun: one that takes its process to another mount namespace may change what /proc says.
const std::filesystem::path Program = std::filesystem::read_symlink("/proc/self/exe");

}  // namespace

bool underEmulator() {
    return *Words != '\0';
}

std::vector<std::string> commandOf(const std::string& program) {
    std::vector<std::string> words;
    std::istringstream list(Words);
    for (std::string word; list >> word;) words.push_back(word);
    words.push_back(Program.parent_path() / program);
    return words;
}

const char* deathTestStyle() {
    return underEmulator() ? "fast" : "threadsafe";
}

}  // namespace kel::http::test
