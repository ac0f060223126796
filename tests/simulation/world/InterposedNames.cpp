// SPDX-License-Identifier: MIT
// Names of a world: they may be slow, change, lead to several addresses, or to none.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <cstdlib>
#include <cstring>

#include "world/Next.h"
#include "world/World.h"

namespace kel::http::simulation {
namespace {

struct Found {
    addrinfo info;
    sockaddr_in address;
};

addrinfo* entry(std::uint32_t ip, int port, const addrinfo* hints, addrinfo* next) {
    auto* const found = static_cast<Found*>(std::calloc(1, sizeof(Found)));
    found->address.sin_family = AF_INET;
    found->address.sin_port = htons(static_cast<std::uint16_t>(port));
    found->address.sin_addr.s_addr = htonl(ip);
    found->info.ai_family = AF_INET;
    found->info.ai_socktype = hints != nullptr ? hints->ai_socktype : SOCK_STREAM;
    found->info.ai_addrlen = sizeof found->address;
    found->info.ai_addr = reinterpret_cast<sockaddr*>(&found->address);
    found->info.ai_next = next;
    return &found->info;
}

int lookUp(World& world, const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
    const auto found = world.names.find(name);
    NameEntry known = found == world.names.end() ? NameEntry() : found->second;
    world.note("resolver", std::string("looks up ") + name);
    ++world.counters.lookUps;
    if (known.delay > Time(0)) ++world.counters.slowLookUps;
    if (known.delay > Time(0) && !world.baton.isSimulator()) {
        Wait wait;
        wait.until = world.now() + known.delay;
        world.baton.park(wait);
    }
    *result = nullptr;
    if (world.now() < known.unknownUntil) known.addresses.clear();
    if (known.addresses.empty()) ++world.counters.failedLookUps;
    for (auto ip = known.addresses.rbegin(); ip != known.addresses.rend(); ++ip) {
        *result = entry(*ip, service == nullptr ? 0 : std::atoi(service), hints, *result);
    }
    return *result == nullptr ? EAI_NONAME : 0;
}

}  // namespace
}  // namespace kel::http::simulation

namespace simulation = kel::http::simulation;

extern "C" {

int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
    static auto* const real =
        simulation::next<int(const char*, const char*, const addrinfo*, addrinfo**)>("getaddrinfo");
    simulation::World* const world = simulation::World::current();
    if (world == nullptr || name == nullptr) return real(name, service, hints, result);
    return simulation::lookUp(*world, name, service, hints, result);
}

void freeaddrinfo(addrinfo* list) noexcept {
    static auto* const real = simulation::next<void(addrinfo*)>("freeaddrinfo");
    if (simulation::World::current() == nullptr) return real(list);
    while (list != nullptr) {
        addrinfo* const following = list->ai_next;
        std::free(list);
        list = following;
    }
}

}  // extern "C"
