// SPDX-License-Identifier: MIT
// Lives worlds, and tells which of them break a promise: tools/simulate --help
#include <cstdio>
#include <exception>

#include "runs/Commands.h"
#include "support/Environment.h"

int main(int count, char** words) {
    namespace simulation = kel::http::simulation;
    kel::http::test::clearProxyEnvironment();
    try {
        return simulation::execute(simulation::parseCommandLine({words + 1, words + count}));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "simulate: %s\nTry 'tools/simulate --help'.\n", error.what());
        return 2;
    }
}
