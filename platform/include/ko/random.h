// SPDX-License-Identifier: MIT
#ifndef KO_RANDOM_H
#define KO_RANDOM_H

#include <random>

namespace ko {

// The calling thread's random engine, seeded by the system's random device when the thread first asks for it.
//
// For names that should not collide, not for secrets: a few outputs give the rest away.
// Threads: the reference is good on the calling thread only, for as long as that thread lives.
std::minstd_rand0& randint_e_();

}  // namespace ko

#endif  // KO_RANDOM_H
