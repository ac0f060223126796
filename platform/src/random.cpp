// SPDX-License-Identifier: MIT
#include "ko/random.h"

namespace ko {

std::minstd_rand0& randint_e_() {
    // The engine takes its seed modulo 2147483647 and turns 0, which it could not leave again, into 1.
    thread_local std::minstd_rand0 engine(std::random_device("default")());
    return engine;
}

}  // namespace ko
