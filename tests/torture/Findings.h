// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kel::http::torture {

// Something that was wrong after a failure.
struct Finding {
    std::string scenario;
    std::string course;
    long call = 0;
    std::string what;
    // The failing call and its number, option or size: "malloc(24)".
    std::string site;
    // From the failing call outwards.
    std::vector<std::string> frames;
    // Where the process died, from there outwards.
    std::vector<std::string> where;
    // What the process said otherwise.
    std::vector<std::string> words;
    // What the threads of a process that hung were at.
    std::vector<std::string> stacks;
};

// A table of them, those of one cause together.
std::string table(const std::vector<Finding>& findings);

}  // namespace kel::http::torture
