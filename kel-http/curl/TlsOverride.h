// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>

#include "kel-http/curl/Engine.h"

namespace kel::http {

// Whether an engine's class has an addTlsConfig() of its own. What that tells libcurl is unknown, another certificate for
// one, and TLS sessions would carry it to transfers that it was not told for.
//
// C++ has no question for that, so this looks where each call of a virtual function looks: all our compilers follow the
// same rules for the table of such functions, in which this one is the third, behind the two of the destructor. While the
// base class's constructor runs, the table is the base class's.
class TlsOverride {
 public:
    // Inside of the constructor of `Engine`.
    explicit TlsOverride(const Engine& engine) : own(target(engine)) {}

    // Later on.
    bool isIn(const Engine& engine) const { return target(engine) != own; }

 private:
    static constexpr std::size_t Place = 2;

    static const void* target(const Engine& engine) {
        const void* const* table = nullptr;
        std::memcpy(&table, static_cast<const void*>(&engine), sizeof(table));
        return table[Place];
    }

    const void* const own;
};

}  // namespace kel::http
