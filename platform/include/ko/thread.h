// SPDX-License-Identifier: MIT
#ifndef KO_THREAD_H
#define KO_THREAD_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

namespace ko {

// Names a running thread. An id may come back for a new thread once the old one has been joined.
using thread_id = std::uintptr_t;

// The id of no thread at all.
constexpr thread_id invalid_thread_id = ~thread_id{0};

namespace this_thread {
// The calling thread's id. Costs next to nothing; never invalid_thread_id.
thread_id get_id() noexcept;
}  // namespace this_thread

// A thread of the process, with a name and with wishes about its stack and its scheduling.
//
// A joinable object stands for a thread that has not been joined yet; a default-made, a moved-from and a joined one
// stand for none. Destroying or overwriting a joinable object stops the process.
// Threads: one object belongs to one thread at a time; it has no lock of its own.
class thread {
 public:
    // Wishes, not demands: what the system refuses (no privilege, a value out of range) is left at its default, and
    // the thread runs all the same.
    class attributes {
     public:
        // `policy` as the kernel numbers them (0 ordinary, 1 first-in first-out, 2 round robin), with its priority.
        void set_scheduler(int policy, int priority) { scheduler_ = scheduler{policy, priority}; }
        // Stack of the thread in bytes; 0 (the default): what the system gives every thread.
        void set_stack_size(std::size_t bytes) { stack_size_ = bytes; }

        // Whether a scheduler was set.
        bool has_scheduler() const noexcept { return scheduler_.has_value(); }
        // 0 as long as no scheduler was set.
        int scheduler_policy() const noexcept { return scheduler_ ? scheduler_->policy : 0; }
        int scheduler_priority() const noexcept { return scheduler_ ? scheduler_->priority : 0; }
        // As set, in bytes.
        std::size_t stack_size() const noexcept { return stack_size_; }

     private:
        struct scheduler {
            int policy;
            int priority;
        };
        std::optional<scheduler> scheduler_;
        std::size_t stack_size_ = 0;
    };

    // No thread.
    thread() noexcept = default;
    // Takes over the other's thread.
    thread(thread&& other) noexcept;
    // Takes over the other's thread. Stops the process when this object is joinable.
    thread& operator=(thread&& other) noexcept;
    // Stops the process when this object is joinable.
    ~thread();

    // Starts a thread that runs `body` once.
    //
    // Ownership: `body` is copied, and the copy dies on the new thread when it has run. `name` is copied, up to the
    //            15 characters that the system keeps.
    // Results:   the thread, and in `id` its id, filled before the call returns (though perhaps after `body` began).
    // Errors:    a system that can start no thread at all stops the process, and so does an exception leaving `body`.
    static thread create_thread(const char* name, const attributes& attributes, thread_id& id,
                                const std::function<void()>& body);

    // Whether this object stands for a thread.
    bool joinable() const noexcept { return id_ != invalid_thread_id; }
    // Waits for the end of the thread. Stops the process when not joinable, or when called by the thread itself.
    void join();
    // invalid_thread_id when not joinable.
    thread_id get_id() const noexcept { return id_; }

 private:
    explicit thread(thread_id id) noexcept : id_(id) {}

    thread_id id_ = invalid_thread_id;
};

}  // namespace ko

#endif  // KO_THREAD_H
