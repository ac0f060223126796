// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

#include "ScriptNetwork.h"

namespace kel::http::simulation {

// What holds for the whole.
struct OrderScript {
    // Decides who is next among those that could act.
    std::int64_t order = 1;
    // 1: completions are posted to a thread of the program's.
    std::int64_t posting = 0;
    // So many executors; the clients take turns.
    std::int64_t executors = 1;
    // 1: downloads have a checksum.
    std::int64_t digest = 0;
    ProxyMode proxyMode = ProxyMode::off;
    // The engine's own, in mode manual.
    std::int64_t proxy = 1;
    // From then on connections are accepted, names are found and answers are whole; 0: when all callers have finished.
    std::int64_t calmAt = 0;
    // Whoever has no limit of its own is cancelled after so many seconds.
    std::int64_t patience = 120;

    static constexpr std::string_view word = "world";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("order", order);
        visitor("posting", posting);
        visitor("executors", executors);
        visitor("digest", digest);
        visitor("proxyMode", proxyMode);
        visitor("proxy", proxy);
        visitor("calmAt", calmAt);
        visitor("patience", patience);
    }
};

}  // namespace kel::http::simulation
