// SPDX-License-Identifier: MIT
// The sockets of a world's network. Each has a descriptor of the process's own, of /dev/null, so that its number is nobody
// else's.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "world/Next.h"
#include "world/World.h"

namespace kel::http::simulation {
namespace {

int fail(int error) {
    errno = error;
    return -1;
}

Link* linkOf(int descriptor) {
    World* const world = World::current();
    return world == nullptr ? nullptr : world->network.find(descriptor);
}

// Never twice for the same byte: whoever makes so many calls in each round would get no further for ever.
bool isInterrupted(Link& link) {
    if (link.faults.interrupted == 0 || ++link.calls < link.faults.interrupted) return false;
    link.calls = 0;
    return std::exchange(link.hasMoved, false);
}

int interrupt(std::int64_t& counter) {
    ++counter;
    return fail(EINTR);
}

std::int64_t atMost(std::size_t bytes, std::int64_t limit) {
    const auto wanted = static_cast<std::int64_t>(bytes);
    return limit > 0 ? std::min(wanted, limit) : wanted;
}

void tell(const Link& link, const char* what, std::int64_t bytes) {
    World& world = *World::current();
    world.note("socket", std::to_string(link.descriptor()) + ' ' + what + ' ' + std::to_string(bytes));
}

int nameOf(const Address& address, sockaddr* name, socklen_t* size) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(address.port);
    in.sin_addr.s_addr = htonl(address.ip);
    std::memcpy(name, &in, std::min<std::size_t>(*size, sizeof in));
    *size = sizeof in;
    return 0;
}

// A descriptor for a socket: from a number on that leaves those of the process alone, so that a world's are the same ones
// whatever else is open.
int openPlace() {
    constexpr int first = 100;
    const int any = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (any < 0) return any;
    const int descriptor = fcntl(any, F_DUPFD_CLOEXEC, first);
    ::close(any);
    return descriptor;
}

int connectTo(World& world, int descriptor, const sockaddr* name) {
    sockaddr_in in{};
    std::memcpy(&in, name, sizeof in);
    if (in.sin_family != AF_INET) return fail(ENETUNREACH);
    Link& link = world.network.open(descriptor, {ntohl(in.sin_addr.s_addr), ntohs(in.sin_port)});
    Network::Acceptance acceptance = world.network.accept(link);
    link.state = Link::State::Connecting;
    link.connectedAt = acceptance.delay == Never ? Never : world.now() + acceptance.delay;
    link.error = acceptance.error;
    link.peer = std::move(acceptance.peer);
    link.faults = acceptance.faults;
    ++world.counters.connects;
    if (link.error != 0) ++world.counters.refused;
    if (link.connectedAt == Never) ++world.counters.neverConnected;
    world.note("socket", std::to_string(descriptor) + " connects to " + link.to().text());
    return fail(EINPROGRESS);
}

ssize_t sendOn(Link& link, const void* bytes, std::size_t size) {
    World& world = *World::current();
    link.arrive(world.now());
    if (link.wasReset) return fail(ECONNRESET);
    if (link.state != Link::State::Connected) return fail(link.error != 0 ? link.error : ENOTCONN);
    if (!link.faults.sendsAtOnce && isInterrupted(link)) return interrupt(world.counters.interruptedSends);
    std::int64_t taken = atMost(size, link.faults.mostSent);
    if (link.room() >= 0) taken = std::min(taken, link.room());
    if (taken == 0 && size > 0) {
        link.seemsWritable = false;
        return fail(EAGAIN);
    }
    link.use(taken);
    link.hasMoved = true;
    if (taken < static_cast<std::int64_t>(size)) ++world.counters.shortSends;
    tell(link, "sends", taken);
    if (link.peer) link.peer->onBytes(link, {static_cast<const char*>(bytes), static_cast<std::size_t>(taken)});
    return static_cast<ssize_t>(taken);
}

ssize_t receiveNothing(const Link& link, Counters& counters) {
    if (link.wasReset) {
        ++counters.resetReceives;
        return fail(ECONNRESET);
    }
    if (!link.finished) return fail(EAGAIN);
    ++counters.closedReceives;
    return 0;
}

ssize_t receiveOn(Link& link, void* buffer, std::size_t size, int flags) {
    link.arrive(World::current()->now());
    if (link.state != Link::State::Connected) return fail(link.error != 0 ? link.error : ENOTCONN);
    Counters& counters = World::current()->counters;
    if (link.arrived.empty()) return receiveNothing(link, counters);
    if (isInterrupted(link)) return interrupt(counters.interruptedReceives);
    const std::int64_t taken =
        std::min(atMost(size, link.faults.mostReceived), static_cast<std::int64_t>(link.arrived.size()));
    std::memcpy(buffer, link.arrived.data(), static_cast<std::size_t>(taken));
    if ((flags & MSG_PEEK) == 0) link.arrived.erase(0, static_cast<std::size_t>(taken));
    link.hasMoved = true;
    tell(link, (flags & MSG_PEEK) == 0 ? "receives" : "peeks at", taken);
    ++((flags & MSG_PEEK) == 0 ? counters.receives : counters.peeks);
    if ((flags & MSG_PEEK) == 0 && !link.arrived.empty()) ++counters.shortReceives;
    return static_cast<ssize_t>(taken);
}

}  // namespace
}  // namespace kel::http::simulation

namespace simulation = kel::http::simulation;
using simulation::Link;
using simulation::next;
using simulation::World;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    static auto* const real = next<int(int, int, int)>("socket");
    World* const world = World::current();
    if (world == nullptr || (domain != AF_INET && domain != AF_INET6)) return real(domain, type, protocol);
    if (world->socketsLeft == 0) return simulation::fail(EMFILE);
    if (world->socketsLeft > 0) --world->socketsLeft;
    const int descriptor = simulation::openPlace();
    if (descriptor >= 0) world->network.reserve(descriptor);
    return descriptor;
}

int connect(int descriptor, const sockaddr* name, socklen_t size) {
    static auto* const real = next<int(int, const sockaddr*, socklen_t)>("connect");
    World* const world = World::current();
    if (world == nullptr || !world->network.has(descriptor)) return real(descriptor, name, size);
    return simulation::connectTo(*world, descriptor, name);
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags) {
    static auto* const real = next<ssize_t(int, const void*, std::size_t, int)>("send");
    Link* const link = simulation::linkOf(descriptor);
    return link == nullptr ? real(descriptor, bytes, size, flags) : simulation::sendOn(*link, bytes, size);
}

ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags) {
    static auto* const real = next<ssize_t(int, void*, std::size_t, int)>("recv");
    Link* const link = simulation::linkOf(descriptor);
    return link == nullptr ? real(descriptor, buffer, size, flags) : simulation::receiveOn(*link, buffer, size, flags);
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* size) noexcept {
    static auto* const real = next<int(int, int, int, void*, socklen_t*)>("getsockopt");
    Link* const link = simulation::linkOf(descriptor);
    if (link == nullptr) return real(descriptor, level, option, value, size);
    const int error = level == SOL_SOCKET && option == SO_ERROR ? link->error : 0;
    std::memset(value, 0, *size);
    std::memcpy(value, &error, std::min<std::size_t>(*size, sizeof error));
    return 0;
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) noexcept {
    static auto* const real = next<int(int, int, int, const void*, socklen_t)>("setsockopt");
    World* const world = World::current();
    if (world != nullptr && world->network.has(descriptor)) return 0;
    return real(descriptor, level, option, value, size);
}

int getpeername(int descriptor, sockaddr* name, socklen_t* size) noexcept {
    static auto* const real = next<int(int, sockaddr*, socklen_t*)>("getpeername");
    const Link* const link = simulation::linkOf(descriptor);
    return link == nullptr ? real(descriptor, name, size) : simulation::nameOf(link->to(), name, size);
}

int getsockname(int descriptor, sockaddr* name, socklen_t* size) noexcept {
    static auto* const real = next<int(int, sockaddr*, socklen_t*)>("getsockname");
    if (simulation::linkOf(descriptor) == nullptr) return real(descriptor, name, size);
    const auto port = static_cast<std::uint16_t>(10000 + descriptor);
    return simulation::nameOf({0x0A000001, port}, name, size);
}

int close(int descriptor) {
    static auto* const real = next<int(int)>("close");
    World* const world = World::current();
    if (world != nullptr && world->network.has(descriptor)) {
        world->note("socket", std::to_string(descriptor) + " is closed");
        world->network.close(descriptor);
    }
    if (world != nullptr) {
        world->sets.erase(descriptor);
        for (auto& [own, set] : world->sets) set.erase(descriptor);
    }
    return real(descriptor);
}

}  // extern "C"
