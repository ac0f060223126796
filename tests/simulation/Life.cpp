// SPDX-License-Identifier: MIT
#include "Life.h"

#include <algorithm>
#include <memory>

#include "kel-http/curl/Engine.h"
#include "parties/Callers.h"
#include "parties/HttpServer.h"
#include "parties/LastCaller.h"
#include "parties/Proxies.h"
#include "parties/Troubles.h"
#include "world/Memory.h"
#include "world/World.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t most_steps = 300'000;

// False: it goes on for ever.
bool goOn(World& world, const Callers& callers, Time until) {
    while (callers.isWaiting() || !callers.isDone()) {
        if (world.steps > most_steps) return false;
        if (!world.step(until)) return true;
    }
    return true;
}

// What was handed to the executor, and to the engine, runs as well.
bool drain(World& world) {
    const Time end = world.now() + std::chrono::seconds(1);
    while (world.step(end)) {
        if (world.steps > most_steps) return false;
    }
    return true;
}

// A look-up that nobody waits for any more has a thread of its own until it is answered.
void endThreads(World& world) {
    for (world.baton.bury(); !world.baton.parties().empty(); world.baton.bury()) {
        if (!world.stepOfThreads()) return;
    }
}

// Where completions run: at once, or when their executor comes to them.
Engine::CallbackHandler handlerOf(const Script& script, Executors& executors) {
    if (script.world.posting == 0) return [](const std::function<void()>& completion) { completion(); };
    return [&executors](const std::function<void()>& completion) { executors.completions().post(completion, 0); };
}

// A world from its beginning to its end; what it takes is free again then.
void liveIn(const Script& script, std::FILE* account, const Folder& folder, Observation& observation) {
    World world(static_cast<std::uint64_t>(script.world.order));
    world.trace.tell(account);
    observation.begin = world.now();
    HttpServers servers(world, script, observation);
    Proxies proxies(world, script, observation);
    Troubles troubles(world, script);
    Executors executors(world, script.world.executors);
    auto engine = std::make_unique<Engine>(handlerOf(script, executors));
    setUpProxies(*engine, script);
    Callers callers(world, script, observation, executors, folder, engine);
    LastCaller last(world, observation);
    observation.isStuck = !goOn(world, callers, world.now() + std::chrono::seconds(script.world.patience));
    callers.giveUp();
    observation.isStuck = !drain(world) || observation.isStuck;
    servers.calm();
    troubles.end();
    last.ask(HttpServers::url(script, LastCaller::host, LastCaller::request, LastCaller::request));
    callers.leave();
    engine.reset();
    endThreads(world);
    observation.sockets = world.network.openSockets();
    observation.end = world.now();
    observation.violations.insert(observation.violations.end(), world.violations.begin(), world.violations.end());
    observation.hash = world.trace.hash();
    observation.events = world.trace.events();
    observation.counters = world.counters;
}

// The host keeps what it has been told of a folder for good, so that this is no part of a world.
Observation liveAndWeigh(const Script& script, std::FILE* account) {
    const Folder folder;
    const Memory before = Memory::now();
    const std::int64_t descriptors = openDescriptors();
    auto seen = std::make_unique<Observation>();
    liveIn(script, account, folder, *seen);
    // The observation itself goes out of the account: what stays is its copy, which is weighed.
    const Memory with_seen = Memory::now();
    Observation observation = *seen;
    const Memory with_copy = Memory::now();
    seen.reset();
    const Memory after = Memory::now();
    observation.blocks = after.blocks - before.blocks - (with_copy.blocks - with_seen.blocks);
    observation.bytes = after.bytes - before.bytes - (with_copy.bytes - with_seen.bytes);
    observation.descriptors = openDescriptors() - descriptors;
    return observation;
}

// What exists once in a process is made with the first world.
void warmUp() {
    static bool done = false;
    if (done) return;
    done = true;
    live(parse("world\nhost named=1 nameDelay=1000\nreply framing=chunked body=10\nrequest timeout=1000\n"));
}

}  // namespace

Observation live(const Script& script, std::FILE* account) {
    warmUp();
    Observation observation = liveAndWeigh(script, account);
    if (observation.blocks <= 0 && observation.descriptors <= 0) return observation;
    // What a library keeps for later, such as the stacks of threads, is there the second time; a leak comes again.
    const Observation again = liveAndWeigh(script, nullptr);
    observation.blocks = std::min(observation.blocks, again.blocks);
    observation.bytes = std::min(observation.bytes, again.bytes);
    observation.descriptors = std::min(observation.descriptors, again.descriptors);
    return observation;
}

}  // namespace kel::http::simulation
