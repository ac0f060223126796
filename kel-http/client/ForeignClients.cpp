// SPDX-License-Identifier: MIT
#include "kel-http/client/ForeignClients.h"

#include <cstddef>
#include <map>

#include "ko/mutex.h"

namespace kel::http {
namespace {

// How many there are: whoever leaves without ever having come needs no lock.
std::atomic<std::size_t> known{0};

}  // namespace

struct ForeignClients::Register {
    ko::mutex mutex{"ForeignClientsMutex"};
    std::map<const Client*, std::shared_ptr<Presence>> presences KO_GUARDED_BY(mutex);
};

// Never destroyed: clients with static storage come and go until the very end.
ForeignClients::Register& ForeignClients::all() {
    static auto& instance = *new Register;
    return instance;
}

ForeignClients::PresencePtr ForeignClients::presence_of(Client& client) {
    Register& clients = all();
    ko::lock_guard lock(clients.mutex);
    const auto found = clients.presences.find(&client);
    if (found != clients.presences.end()) return found->second;
    const auto added = clients.presences.emplace(&client, std::make_shared<Presence>(client));
    ++known;
    return added.first->second;
}

void ForeignClients::leave(const Client& client) noexcept {
    if (known == 0) return;
    Register& clients = all();
    ko::lock_guard lock(clients.mutex);
    const auto found = clients.presences.find(&client);
    if (found == clients.presences.end()) return;
    found->second->client_ = nullptr;
    clients.presences.erase(found);
    --known;
}

}  // namespace kel::http
