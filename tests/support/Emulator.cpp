// SPDX-License-Identifier: MIT
#include "Emulator.h"

#include <sstream>

namespace kel::http::test {
namespace {

// A list as CMake writes it.
constexpr const char* Words = KEL_TEST_EMULATOR;

}  // namespace

bool underEmulator() {
    return *Words != '\0';
}

std::vector<std::string> commandOf(const std::string& program) {
    std::vector<std::string> words;
    std::istringstream list(Words);
    for (std::string word; std::getline(list, word, ';');) words.push_back(word);
    words.push_back(program);
    return words;
}

const char* deathTestStyle() {
    return underEmulator() ? "fast" : "threadsafe";
}

}  // namespace kel::http::test
