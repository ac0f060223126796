// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>

namespace ko {

using thread_id = std::uintptr_t;
constexpr thread_id invalid_thread_id = 0;

namespace this_thread {
thread_id get_id() noexcept;
}

class thread {
 public:
    // This system gives all threads the same.
    struct attributes {
        void set_scheduler(int /*policy*/, int /*priority*/) {}
        void set_stack_size(std::size_t /*bytes*/) {}
    };

    static thread create_thread(const char* name, const attributes& attributes, thread_id& id,
                                const std::function<void()>& body);

    bool joinable() const { return thread_.joinable(); }
    void join() { thread_.join(); }
    thread_id get_id() const { return id_; }

 private:
    std::thread thread_;
    thread_id id_ = invalid_thread_id;
};

}  // namespace ko
