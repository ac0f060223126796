// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>

#include "kel-http/curl/Engine.h"
#include "kel-http/curl/Hooks.h"

// The library's own name for its own function; null where the program's have taken the place of all hooks.
CURLMcode own_curl_multi_add_handle(void* multi, void* easy) __attribute__((weak, visibility("hidden")));

namespace kel::http {

// Whether an engine's class has an addTlsConfig() of its own, or the program an engine_curl_multi_add_handle(). What these
// tell libcurl is unknown, another certificate for one, and TLS sessions would carry it to transfers that it was not told
// for. The hook comes last, and can allow them.
//
// C++ has no question for the former, so this looks where each call of a virtual function looks: all our compilers follow the
// same rules for the table of such functions, in which this one is the third, behind the two of the destructor. While the
// base class's constructor runs, the table is the base class's.
class TlsOverride {
 public:
    // Inside of the constructor of `Engine`.
    explicit TlsOverride(const Engine& engine) : own(target(engine)) {}

    // Later on.
    bool isIn(const Engine& engine) const { return hookIsForeign || target(engine) != own; }

 private:
    static constexpr std::size_t Place = 2;

    static const void* target(const Engine& engine) {
        const void* const* table = nullptr;
        std::memcpy(&table, static_cast<const void*>(&engine), sizeof(table));
        return table[Place];
    }

    const void* const own;
    const bool hookIsForeign = &engine_curl_multi_add_handle != &own_curl_multi_add_handle;
};

}  // namespace kel::http
