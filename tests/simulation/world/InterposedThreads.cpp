// SPDX-License-Identifier: MIT
// Threads that run when a world lets them, and waiting for them.
#include <pthread.h>

#include <cerrno>

#include "world/Next.h"
#include "world/World.h"

using kel::http::simulation::next;
using kel::http::simulation::Party;
using kel::http::simulation::Wait;
using kel::http::simulation::World;

extern "C" {

// The simulator's thread makes those of engines, and an engine's those that look names up.
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept {
    static auto* const real = next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    World* const world = World::current();
    if (world == nullptr) return real(thread, attributes, routine, argument);
    const char* const name = world->baton.isSimulator() ? "engine" : "resolver";
    return world->baton.create(thread, attributes, name, [routine, argument] { routine(argument); });
}

int pthread_join(pthread_t thread, void** result) {
    static auto* const real = next<int(pthread_t, void**)>("pthread_join");
    World* const world = World::current();
    Party* const party = world == nullptr ? nullptr : world->baton.find(thread);
    if (party == nullptr) return real(thread, result);
    if (!world->baton.isSimulator()) {
        Wait wait;
        wait.other = thread;
        while (!party->ended) world->baton.park(wait);
    }
    while (!party->ended) {
        if (!world->stepOfThreads()) return EDEADLK;
    }
    party->released = true;
    return 0;
}

int pthread_detach(pthread_t thread) noexcept {
    static auto* const real = next<int(pthread_t)>("pthread_detach");
    World* const world = World::current();
    Party* const party = world == nullptr ? nullptr : world->baton.find(thread);
    if (party == nullptr) return real(thread);
    party->released = true;
    return 0;
}

// Whoever waits lets the others go on; it is woken often, which condition variables allow.
int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static auto* const real = next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    World* const world = World::current();
    if (world == nullptr) return real(condition, mutex);
    pthread_mutex_unlock(mutex);
    if (world->baton.isSimulator()) {
        world->stepOfThreads();
    } else {
        Wait wait;
        wait.until = world->now();
        world->baton.park(wait);
    }
    pthread_mutex_lock(mutex);
    return 0;
}

}  // extern "C"
