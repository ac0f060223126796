// SPDX-License-Identifier: MIT

// There is a newer way as well, of many more lines.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "world/Randomness.h"

#include <openssl/rand.h>

#include "world/Random.h"

namespace kel::http::simulation {
namespace {

// One thread runs at a time.
Random& numbers() {
    static Random random(0);
    return random;
}

int fill(unsigned char* bytes, int count) {
    for (int place = 0; place < count; ++place) bytes[place] = static_cast<unsigned char>(numbers().next() >> 56U);
    return 1;
}

int yes() {
    return 1;
}

}  // namespace

void makeRandomnessRepeatable(std::uint64_t seed) {
    static const RAND_METHOD method = {nullptr, &fill, nullptr, nullptr, &fill, &yes};
    RAND_set_rand_method(&method);
    numbers() = Random(seed);
}

}  // namespace kel::http::simulation
