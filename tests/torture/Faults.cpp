// SPDX-License-Identifier: MIT
#include "torture/Faults.h"

#include <execinfo.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <utility>

namespace kel::http::torture {
namespace {

thread_local Role role = Role::bystander;

constexpr std::size_t most_frames = 48;
constexpr std::size_t most_calls = 64;

struct State {
    std::atomic<bool> armed{false};
    Plan plan;
    std::atomic<long> calls{0};
    std::atomic<std::size_t> failures{0};
    std::array<const char*, most_calls> failed{};
    long detail = 0;
    std::array<void*, most_frames> frames{};
    int depth = 0;
};

State state;

// Within a failing call: what that needs itself does not fail. All in static memory.
void note(const char* call, long detail) noexcept {
    const Acting bystander(Role::bystander);
    const std::size_t index = state.failures++;
    if (index < most_calls) state.failed[index] = call;
    if (index != 0) return;
    state.detail = detail;
    state.depth = backtrace(state.frames.data(), most_frames);
}

}  // namespace

Acting::Acting(Role acted) : before_(std::exchange(role, acted)) {}

Acting::~Acting() {
    role = before_;
}

Role roleOfThread() {
    return role;
}

void setRoleOfThread(Role of_thread) {
    role = of_thread;
}

namespace faults {

void arm(const Plan& plan) {
    state.plan = plan;
    state.calls = 0;
    state.failures = 0;
    state.depth = 0;
    state.armed = true;
}

void suspend() {
    state.armed = false;
}

void resume() {
    state.armed = true;
}

bool fired() {
    return state.failures != 0;
}

bool firedFor(Kind kind) {
    return fired() && state.plan.kind == kind;
}

bool failed(const char* call) {
    for (std::size_t i = 0; i < most_calls && i < state.failures; ++i) {
        if (state.failed[i] != nullptr && std::strcmp(state.failed[i], call) == 0) return true;
    }
    return false;
}

void writeSite(int descriptor) {
    if (state.depth == 0) return;
    std::array<char, 160> text{};
    const int length = std::snprintf(text.data(), text.size(), "@site %s(%ld), %zu in all\n", state.failed[0],
                                     state.detail, state.failures.load());
    if (write(descriptor, text.data(), static_cast<std::size_t>(length)) < 0) return;
    backtrace_symbols_fd(state.frames.data(), state.depth, descriptor);
    if (write(descriptor, "@site end\n", 10) < 0) return;
}

bool concerns(Kind kind) noexcept {
    return role != Role::bystander && state.armed && state.plan.role == role && state.plan.kind == kind;
}

bool strike(Kind kind, const char* call, long detail) noexcept {
    if (!concerns(kind)) return false;
    const long number = ++state.calls;
    if (number < state.plan.first || number >= state.plan.first + state.plan.count) return false;
    note(call, detail);
    return true;
}

}  // namespace faults
}  // namespace kel::http::torture
