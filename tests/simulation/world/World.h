// SPDX-License-Identifier: MIT
#pragma once

#include <sys/epoll.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "world/Baton.h"
#include "world/Counters.h"
#include "world/Network.h"
#include "world/Random.h"
#include "world/Time.h"
#include "world/Trace.h"

namespace kel::http::simulation {

// What a name means, and how long the answer takes.
struct NameEntry {
    std::vector<std::uint32_t> addresses;  // none: there is no such name
    Time delay = Time(0);
    // Until then it is not found.
    Time unknownUntil = Time(0);
};

// One world: a clock, a network, threads of which one runs at a time, and what may happen next. As long as it lives, the
// functions of the system that the library, libcurl and the standard library call are the world's (Interposed*.cpp).
//
// Made on the simulator's thread, one at a time.
class World {
 public:
    explicit World(std::uint64_t order_seed);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // Null when there is none.
    static World* current();

    Time now() const { return now_; }
    // The wall clock in microseconds since 1970; it may jump.
    std::int64_t wallClock() const { return wall_offset_ + now_.count(); }
    void setWallClock(std::int64_t microseconds) { wall_offset_ = microseconds - now_.count(); }

    // Whatever else may act on the simulator's thread: executors, callers. Each says whether it has something to do now, when
    // it will have something next, and does one thing.
    struct Actor {
        std::string name;
        std::function<bool()> can;
        std::function<Time()> next;
        std::function<void()> act;
    };
    void add(Actor actor) { actors_.push_back(std::move(actor)); }

    // One of those that could act does, or the clock moves on to when one can. False: nothing will ever happen again, or not
    // before `limit`. The simulator's thread.
    bool step(Time limit = Never);
    // The same without the actors, for a caller that waits inside a call of the library's.
    bool stepOfThreads();
    // The clock moves, whoever could act meanwhile.
    void passTime(Time time) { now_ += time; }

    void note(std::string_view party, const std::string& event) { trace.note(now_, party, event); }

    Trace trace;
    Network network;
    Baton baton;
    Random order;
    std::map<std::string, NameEntry> names;
    // Sets of descriptors to wait for (epoll(7)), by their own.
    std::map<int, std::map<int, epoll_event>> sets;
    // So many sockets can still be made; less than 0: any number.
    std::int64_t socketsLeft = -1;
    std::int64_t steps = 0;
    // What the process did that it never may.
    std::vector<std::string> violations;
    Counters counters;

 private:
    bool isReady(const Party& party);
    Time nextOf(const Party& party);
    bool step(bool with_actors, Time limit);

    Time now_ = Beginning;
    std::int64_t wall_offset_;
    std::vector<Actor> actors_;
};

// Which of them are ready now, in a world: as poll(2) tells it, without waiting.
int pollNow(World& world, pollfd* descriptors, std::size_t count);

}  // namespace kel::http::simulation
