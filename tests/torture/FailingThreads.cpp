// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <cstdlib>
#include <utility>

#include "torture/Faults.h"
#include "torture/Next.h"

namespace kel::http::torture {
namespace {

using Body = void*(void*);

struct Start {
    Body* body;
    void* argument;
    Role role;
};

void* begin(void* start) {
    const Start own = *static_cast<Start*>(start);
    std::free(start);
    setRoleOfThread(own.role);
    return own.body(own.argument);
}

Start* makeStart(Body* body, void* argument, Role creator) {
    const Acting bystander(Role::bystander);
    const Role role = creator == Role::bystander ? Role::bystander : Role::engine;
    auto* const start = static_cast<Start*>(std::malloc(sizeof(Start)));
    *start = {body, argument, role};
    return start;
}

}  // namespace
}  // namespace kel::http::torture

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) noexcept {
    using namespace kel::http::torture;
    static auto* const real = next<int(pthread_t*, const pthread_attr_t*, Body*, void*)>("pthread_create");
    Start* const start = makeStart(body, argument, roleOfThread());
    const int error = real(thread, attributes, &begin, start);
    if (error != 0) std::free(start);
    return error;
}
