// SPDX-License-Identifier: MIT
#include "Memory.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace kel::http::bench {
namespace {

long kibOf(const std::string& name) {
    std::ifstream status("/proc/self/status");
    long kib = 0;
    for (std::string word; status >> word;) {
        if (word == name && status >> kib) return kib;
    }
    std::fprintf(stderr, "kel-http-bench: /proc/self/status has no %s\n", name.c_str());
    std::abort();
}

}  // namespace

long residentKib() {
    return kibOf("VmRSS:");
}

long peakKib() {
    return kibOf("VmHWM:");
}

}  // namespace kel::http::bench
