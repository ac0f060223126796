// SPDX-License-Identifier: MIT
#include "world/Baton.h"

#include <algorithm>
#include <utility>

#include "world/Next.h"
#include "world/World.h"

namespace kel::http::simulation {
namespace {

thread_local Party* own_party = nullptr;

}  // namespace

void Baton::pass(Party& party) {
    party.turn.give();
    back_.take();
}

void Baton::park(Wait wait) {
    Party& party = *own_party;
    party.wait = std::move(wait);
    back_.give();
    party.turn.take();
}

void* Baton::enter(void* own) {
    Party& party = *static_cast<Party*>(own);
    own_party = &party;
    party.turn.take();
    party.body();
    party.body = nullptr;
    party.ended = true;
    World::current()->baton.back_.give();
    return nullptr;
}

int Baton::create(pthread_t* thread, const pthread_attr_t* attributes, const std::string& name,
                  std::function<void()> body) {
    static auto* const real = next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    Party& party = parties_.emplace_back();
    party.name = name;
    party.body = std::move(body);
    party.wait.until = Time(0);  // it can begin at once
    const int error = real(&party.thread, attributes, &Baton::enter, &party);
    if (error != 0) {
        parties_.pop_back();
        return error;
    }
    *thread = party.thread;
    return 0;
}

Party* Baton::find(pthread_t thread) {
    const auto found = std::find_if(parties_.begin(), parties_.end(),
                                    [thread](const Party& party) { return pthread_equal(party.thread, thread) != 0; });
    return found == parties_.end() ? nullptr : &*found;
}

// The name of a thread may come back for another one when it has been joined, so that this is left to whoever has made it.
void Baton::bury() {
    static auto* const join = next<int(pthread_t, void**)>("pthread_join");
    for (auto party = parties_.begin(); party != parties_.end();) {
        if (!party->ended || !party->released) {
            ++party;
            continue;
        }
        join(party->thread, nullptr);
        party = parties_.erase(party);
    }
}

}  // namespace kel::http::simulation
