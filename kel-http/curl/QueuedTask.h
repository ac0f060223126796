// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace kel::http {

// Something to be called once, by the engine thread, with all that it holds: a std::function that takes no memory of its
// own, and that is moved only. A task that failed to be queued is as it was.
class QueuedTask {
 public:
    // Enough for a run of a request, the largest one.
    static constexpr std::size_t room = 16 * sizeof(void*);

    template <typename Call, std::enable_if_t<!std::is_same_v<std::decay_t<Call>, QueuedTask>, int> = 0>
    QueuedTask(Call&& call) : kind(&kindOf<std::decay_t<Call>>) {
        using Target = std::decay_t<Call>;
        static_assert(sizeof(Target) <= room && alignof(Target) <= alignof(std::max_align_t));
        static_assert(std::is_nothrow_move_constructible_v<Target>);
        new (place) Target(std::forward<Call>(call));
    }
    QueuedTask(QueuedTask&& other) noexcept : kind(other.kind) { kind->move(place, other.place); }
    QueuedTask(const QueuedTask&) = delete;
    QueuedTask& operator=(const QueuedTask&) = delete;
    QueuedTask& operator=(QueuedTask&&) = delete;
    ~QueuedTask() { kind->destroy(place); }

    void operator()() { kind->call(place); }

    // Null when it holds something else.
    template <typename Target>
    Target* target() {
        return kind == &kindOf<Target> ? static_cast<Target*>(static_cast<void*>(place)) : nullptr;
    }

 private:
    struct Kind {
        void (*call)(void* target);
        void (*move)(void* to, void* from) noexcept;
        void (*destroy)(void* target) noexcept;
    };

    template <typename Target>
    static constexpr Kind kindOf = {
        [](void* target) { (*static_cast<Target*>(target))(); },
        [](void* to, void* from) noexcept { new (to) Target(std::move(*static_cast<Target*>(from))); },
        [](void* target) noexcept { static_cast<Target*>(target)->~Target(); }};

    const Kind* kind;
    alignas(std::max_align_t) std::byte place[room];
};

}  // namespace kel::http
