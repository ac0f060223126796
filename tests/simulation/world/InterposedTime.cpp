// SPDX-License-Identifier: MIT
// The clocks and sleeps of a world, in the place of the system's.
#include <sys/time.h>
#include <time.h>

#include <cstdint>

#include "world/Next.h"
#include "world/World.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t million = 1'000'000;

bool isVirtual(clockid_t clock) {
    switch (clock) {
        case CLOCK_REALTIME:
        case CLOCK_REALTIME_COARSE:
        case CLOCK_MONOTONIC:
        case CLOCK_MONOTONIC_COARSE:
        case CLOCK_MONOTONIC_RAW:
        case CLOCK_BOOTTIME:
            return World::current() != nullptr;
        default:
            return false;
    }
}

bool isWallClock(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

void sleepIn(World& world, Time time) {
    Wait wait;
    wait.until = world.now() + time;
    if (!world.baton.isSimulator()) return world.baton.park(wait);
    while (world.now() < wait.until) {
        if (!world.stepOfThreads()) world.passTime(wait.until - world.now());
    }
}

}  // namespace
}  // namespace kel::http::simulation

using kel::http::simulation::next;
using kel::http::simulation::World;

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) {
    namespace simulation = kel::http::simulation;
    static auto* const real = next<int(clockid_t, timespec*)>("clock_gettime");
    if (!simulation::isVirtual(clock)) return real(clock, time);
    const World& world = *World::current();
    const std::int64_t microseconds = simulation::isWallClock(clock) ? world.wallClock() : world.now().count();
    time->tv_sec = static_cast<time_t>(microseconds / simulation::million);
    time->tv_nsec = static_cast<long>(microseconds % simulation::million * 1000);
    return 0;
}

int gettimeofday(timeval* time, void* zone) {
    static auto* const real = next<int(timeval*, void*)>("gettimeofday");
    if (World::current() == nullptr) return real(time, zone);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
    return 0;
}

time_t time(time_t* result) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) *result = now.tv_sec;
    return now.tv_sec;
}

int nanosleep(const timespec* time, timespec* rest) {
    static auto* const real = next<int(const timespec*, timespec*)>("nanosleep");
    World* const world = World::current();
    if (world == nullptr) return real(time, rest);
    kel::http::simulation::sleepIn(
        *world, std::chrono::seconds(time->tv_sec) + std::chrono::microseconds((time->tv_nsec + 999) / 1000));
    return 0;
}

}  // extern "C"
