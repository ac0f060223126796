// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>

#include "kel-http/Client.h"

namespace kel::http {

// The clients of the program's own classes (fakes, decorators) that have given out handles, so that a handle finds out
// that its client has gone. They can not tell by themselves: Client has no members, and a program that was built against
// a Client without them goes on running. Any thread.
class ForeignClients {
 public:
    // Stands for one client, also after its end. Another client at the same address has another one.
    class Presence {
     public:
        explicit Presence(Client& client) : client_(&client) {}
        // Null once it has gone.
        Client* client() const { return client_; }

     private:
        friend class ForeignClients;

        std::atomic<Client*> client_;
    };
    using PresencePtr = std::shared_ptr<const Presence>;

    // Throws std::bad_alloc.
    static PresencePtr presence_of(Client& client);

    // The client's end. Costs next to nothing where there are no such clients.
    static void leave(const Client& client) noexcept;

 private:
    struct Register;
    static Register& all();
};

}  // namespace kel::http
