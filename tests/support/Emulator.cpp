// SPDX-License-Identifier: MIT
#include "Emulator.h"

#include <filesystem>
#include <sstream>

namespace kel::http::test {
namespace {

// Separated by blanks.
constexpr const char* Words = KEL_TEST_EMULATOR;

}  // namespace

bool underEmulator() {
    return *Words != '\0';
}

std::vector<std::string> commandOf(const std::string& program) {
    std::vector<std::string> words;
    std::istringstream list(Words);
    for (std::string word; list >> word;) words.push_back(word);
    words.push_back(std::filesystem::read_symlink("/proc/self/exe").replace_filename(program));
    return words;
}

const char* deathTestStyle() {
    return underEmulator() ? "fast" : "threadsafe";
}

}  // namespace kel::http::test
