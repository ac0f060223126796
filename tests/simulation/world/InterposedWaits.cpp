// SPDX-License-Identifier: MIT
// Where threads wait for sockets: there the baton goes to the simulator.
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "world/Next.h"
#include "world/World.h"

namespace kel::http::simulation {
namespace {

std::vector<pollfd> descriptorsOf(int count, const fd_set* readable, const fd_set* writable) {
    std::vector<pollfd> descriptors;
    for (int descriptor = 0; descriptor < count; ++descriptor) {
        short events = 0;
        if (readable != nullptr && FD_ISSET(descriptor, readable)) events |= POLLIN;
        if (writable != nullptr && FD_ISSET(descriptor, writable)) events |= POLLOUT;
        if (events != 0) descriptors.push_back({descriptor, events, 0});
    }
    return descriptors;
}

int fill(const std::vector<pollfd>& descriptors, fd_set* readable, fd_set* writable, fd_set* exceptional) {
    int ready = 0;
    for (fd_set* const set : {readable, writable, exceptional}) {
        if (set != nullptr) FD_ZERO(set);
    }
    for (const pollfd& one : descriptors) {
        const bool failed = (one.revents & (POLLERR | POLLHUP)) != 0;
        if ((one.events & POLLIN) != 0 && ((one.revents & POLLIN) != 0 || failed)) {
            FD_SET(one.fd, readable);
            ++ready;
        }
        if ((one.events & POLLOUT) != 0 && ((one.revents & POLLOUT) != 0 || failed)) {
            FD_SET(one.fd, writable);
            ++ready;
        }
    }
    return ready;
}

// Who is ready though nothing waits is asked later as well: others may go first.
int await(World& world, std::vector<pollfd>& descriptors, Time until) {
    if (!world.baton.isSimulator()) {
        world.baton.park({descriptors, until, 0});
        return pollNow(world, descriptors.data(), descriptors.size());
    }
    for (;;) {
        const int ready = pollNow(world, descriptors.data(), descriptors.size());
        if (ready > 0 || world.now() >= until || !world.stepOfThreads()) return ready;
    }
}

// The numbers of what may happen are those of poll(2).
std::vector<pollfd> descriptorsOf(const std::map<int, epoll_event>& set) {
    std::vector<pollfd> descriptors;
    for (const auto& [descriptor, event] : set) {
        descriptors.push_back({descriptor, static_cast<short>(event.events), 0});
    }
    return descriptors;
}

int changeSet(std::map<int, epoll_event>& set, int operation, int descriptor, const epoll_event* event) {
    const bool is_there = set.count(descriptor) != 0;
    if (is_there == (operation == EPOLL_CTL_ADD)) {
        errno = is_there ? EEXIST : ENOENT;
        return -1;
    }
    set.erase(descriptor);
    if (operation != EPOLL_CTL_DEL) set[descriptor] = *event;
    return 0;
}

}  // namespace
}  // namespace kel::http::simulation

namespace simulation = kel::http::simulation;
using simulation::Time;
using simulation::World;

extern "C" {

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    static auto* const real = simulation::next<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
    World* const world = World::current();
    if (world == nullptr) return real(count, readable, writable, exceptional, timeout);
    std::vector<pollfd> descriptors = simulation::descriptorsOf(count, readable, writable);
    const Time until = timeout == nullptr ? simulation::Never
                                          : world->now() + std::chrono::seconds(timeout->tv_sec) +
                                                std::chrono::microseconds(timeout->tv_usec);
    simulation::await(*world, descriptors, until);
    return simulation::fill(descriptors, readable, writable, exceptional);
}

int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
    static auto* const real = simulation::next<int(pollfd*, nfds_t, int)>("poll");
    World* const world = World::current();
    if (world == nullptr) return real(descriptors, count, milliseconds);
    if (milliseconds == 0) return simulation::pollNow(*world, descriptors, count);
    std::vector<pollfd> asked(descriptors, descriptors + count);
    const Time until = milliseconds < 0 ? simulation::Never : world->now() + std::chrono::milliseconds(milliseconds);
    const int ready = simulation::await(*world, asked, until);
    std::copy(asked.begin(), asked.end(), descriptors);
    return ready;
}

int epoll_create1(int flags) noexcept {
    static auto* const real = simulation::next<int(int)>("epoll_create1");
    const int set = real(flags);
    if (World::current() != nullptr && set >= 0) World::current()->sets[set].clear();
    return set;
}

int epoll_ctl(int set, int operation, int descriptor, epoll_event* event) noexcept {
    static auto* const real = simulation::next<int(int, int, int, epoll_event*)>("epoll_ctl");
    World* const world = World::current();
    if (world == nullptr || world->sets.count(set) == 0) return real(set, operation, descriptor, event);
    return simulation::changeSet(world->sets[set], operation, descriptor, event);
}

int epoll_wait(int set, epoll_event* events, int most, int milliseconds) {
    static auto* const real = simulation::next<int(int, epoll_event*, int, int)>("epoll_wait");
    World* const world = World::current();
    if (world == nullptr || world->sets.count(set) == 0) return real(set, events, most, milliseconds);
    const std::map<int, epoll_event>& watched = world->sets[set];
    std::vector<pollfd> descriptors = simulation::descriptorsOf(watched);
    const Time until = milliseconds < 0 ? simulation::Never : world->now() + std::chrono::milliseconds(milliseconds);
    simulation::await(*world, descriptors, until);
    int count = 0;
    for (const pollfd& one : descriptors) {
        if (one.revents == 0 || count == most) continue;
        events[count].data = watched.at(one.fd).data;
        events[count++].events = static_cast<std::uint32_t>(one.revents);
    }
    return count;
}

}  // extern "C"
