// SPDX-License-Identifier: MIT
// Standard input is the program's: nobody reads from it in a world.
#include <unistd.h>

#include "world/Next.h"
#include "world/World.h"

using kel::http::simulation::next;
using kel::http::simulation::World;

extern "C" {

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
    World* const world = World::current();
    if (world == nullptr || descriptor != 0) return real(descriptor, buffer, size);
    world->violations.emplace_back("somebody reads standard input");
    return 0;
}

}  // extern "C"
