// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "world/Time.h"

namespace kel::http::simulation {

// What has happened in a world, as a number by which two runs can be compared and, if somebody wants it, as an account
// to read: time, party, event. Whoever has the baton.
class Trace {
 public:
    void note(Time now, std::string_view party, std::string_view event);

    // Between the two the order of what happens counts for nothing: where the library goes by addresses it is another one
    // each time.
    void beginAnyOrder() { is_in_order_ = false; }
    void endAnyOrder();

    // Equal for equal runs.
    std::uint64_t hash() const { return hash_; }
    std::uint64_t events() const { return events_; }

    // From now on each event is written there.
    void tell(std::FILE* reader) { reader_ = reader; }
    // Whether it is worth putting details together.
    bool isTold() const { return reader_ != nullptr; }

 private:
    static std::uint64_t mixed(std::uint64_t hash, std::string_view text);

    static constexpr std::uint64_t beginning = 14695981039346656037U;
    std::uint64_t hash_ = beginning;
    std::uint64_t events_ = 0;
    std::FILE* reader_ = nullptr;
    bool is_in_order_ = true;
    // Of what has happened in any order, the sum.
    std::uint64_t sum_ = 0;
};

}  // namespace kel::http::simulation
