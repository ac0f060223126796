// SPDX-License-Identifier: MIT
// Where threads wait for sockets: there the baton goes to the simulator.
#include <poll.h>
#include <sys/select.h>

#include <algorithm>
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

}  // extern "C"
