// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "torture/Faults.h"

namespace kel::http::torture {

// A way to fail: a kind of calls, those of one role, one at a time or several in a row.
struct Course {
    std::string name;
    Kind kind;
    Role role;
    long count;
};

// All of them, in their order.
inline const std::vector<Course>& courses() {
    constexpr long row = 20;
    static const auto* const instance = new std::vector<Course>{
        {"file calls of the engine", Kind::file, Role::engine, 1},
        {"rows of file calls of the engine", Kind::file, Role::engine, row},
        {"file calls of the caller", Kind::file, Role::caller, 1},
        {"pieces of the engine", Kind::piece, Role::engine, 1},
        {"rows of pieces of the engine", Kind::piece, Role::engine, row},
        {"libcurl calls of the caller", Kind::curl, Role::caller, 1},
        {"libcurl calls of the engine", Kind::curl, Role::engine, 1},
        {"rows of libcurl calls of the engine", Kind::curl, Role::engine, row},
        {"memory of the caller", Kind::memory, Role::caller, 1},
        {"rows of memory of the caller", Kind::memory, Role::caller, row},
        {"memory of the engine", Kind::memory, Role::engine, 1},
        {"rows of memory of the engine", Kind::memory, Role::engine, row},
    };
    return *instance;
}

}  // namespace kel::http::torture
