// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kel::http::test {

// Lets C++ code run out of memory: `operator new` throws std::bad_alloc for one allocation of this thread, or for all from
// that one on, while this object lives. One at a time in each thread; others go on as ever. Keep its scope narrow: the
// test's own allocations count as well.
class FailAllocation {
 public:
    enum class Extent { one, all };

    // The n-th allocation from now on, the first being 1.
    explicit FailAllocation(std::size_t n, Extent extent = Extent::one);
    ~FailAllocation();
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;

    // How many have been refused.
    std::size_t refused() const;

    // Sanitizers have an `operator new` of their own, which knows nothing of this: skip such a test then.
    static bool isPossible();
};

// Calls `attempt` with memory for one allocation less missing each time, until nothing is missing. It is given how many
// allocations succeed, from 0 on, and returns how many were refused.
template <typename Attempt>
void failEachAllocation(const Attempt& attempt) {
    for (std::size_t succeeding = 0; attempt(succeeding) > 0; ++succeeding) {
    }
}

}  // namespace kel::http::test
