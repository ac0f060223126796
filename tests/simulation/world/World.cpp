// SPDX-License-Identifier: MIT
#include "world/World.h"

#include <algorithm>

#include "world/Next.h"
#include "world/Randomness.h"

namespace kel::http::simulation {
namespace {

World* current_world = nullptr;

constexpr std::int64_t autumn_2023 = 1'700'000'000'000'000;

}  // namespace

World::World(std::uint64_t order_seed) : order(order_seed), wall_offset_(autumn_2023) {
    current_world = this;
    makeRandomnessRepeatable(order_seed);
}

World::~World() {
    current_world = nullptr;
}

World* World::current() {
    return current_world;
}

int pollNow(World& world, pollfd* descriptors, std::size_t count) {
    static auto* const real = next<int(pollfd*, nfds_t, int)>("poll");
    int ready = 0;
    for (pollfd* one = descriptors; one != descriptors + count; ++one) {
        one->revents = 0;
        if (one->fd < 0) continue;
        if (Link* const link = world.network.find(one->fd)) {
            if ((one->events & POLLIN) != 0 && link->isReadable(world.now())) one->revents |= POLLIN;
            if ((one->events & POLLOUT) != 0 && link->isWritable(world.now())) one->revents |= POLLOUT;
            if (link->wasReset || link->state == Link::State::Refused) one->revents |= POLLERR;
        } else {
            real(one, 1, 0);
        }
        if (one->revents != 0) ++ready;
    }
    return ready;
}

bool World::isReady(const Party& party) {
    if (party.ended) return false;
    if (party.wait.until <= now_) return true;
    if (party.wait.other != 0) {
        const Party* const other = baton.find(party.wait.other);
        if (other == nullptr || other->ended) return true;
    }
    std::vector<pollfd> descriptors = party.wait.descriptors;
    return pollNow(*this, descriptors.data(), descriptors.size()) > 0;
}

Time World::nextOf(const Party& party) {
    return party.ended ? Never : party.wait.until;
}

bool World::step(Time limit) {
    return step(true, limit);
}

bool World::stepOfThreads() {
    return step(false, Never);
}

bool World::step(bool with_actors, Time limit) {
    ++steps;
    baton.bury();
    std::vector<Party*> parties;
    for (Party& party : baton.parties()) {
        if (isReady(party)) parties.push_back(&party);
    }
    std::vector<Actor*> actors;
    for (Actor& actor : actors_) {
        if (with_actors && actor.can()) actors.push_back(&actor);
    }
    if (!parties.empty() || !actors.empty()) {
        const auto chosen =
            static_cast<std::size_t>(order.below(static_cast<std::int64_t>(parties.size() + actors.size())));
        if (chosen < parties.size()) {
            baton.pass(*parties[chosen]);
        } else {
            actors[chosen - parties.size()]->act();
        }
        return true;
    }
    Time next = network.nextEvent(now_);
    for (Party& party : baton.parties()) next = std::min(next, nextOf(party));
    for (Actor& actor : actors_) {
        if (with_actors) next = std::min(next, actor.next());
    }
    if (next == Never || next > limit) return false;
    now_ = std::max(now_, next);
    return true;
}

}  // namespace kel::http::simulation
