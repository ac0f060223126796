// SPDX-License-Identifier: MIT
#include "ko/thread.h"

#include <pthread.h>
#include <sched.h>

#include <memory>
#include <string>
#include <utility>

#include "ko/assert.h"

static_assert(sizeof(pthread_t) == sizeof(ko::thread_id), "a thread id is the system's own");

namespace ko {
namespace {

constexpr std::size_t longest_name = 15;  // the kernel refuses longer ones instead of cutting them

struct Start {
    std::string name;
    std::function<void()> body;
};

void run(std::unique_ptr<Start> start) noexcept {
    pthread_setname_np(pthread_self(), start->name.c_str());
    start->body();
}

extern "C" void* ko_thread_main(void* start) {
    run(std::unique_ptr<Start>(static_cast<Start*>(start)));
    return nullptr;
}

class NativeAttributes {
 public:
    NativeAttributes() { pthread_attr_init(&native_); }
    ~NativeAttributes() { pthread_attr_destroy(&native_); }
    NativeAttributes(const NativeAttributes&) = delete;
    NativeAttributes& operator=(const NativeAttributes&) = delete;

    void set_stack_size(std::size_t bytes) { pthread_attr_setstacksize(&native_, bytes); }

    void set_scheduler(int policy, int priority) {
        sched_param parameters{};
        parameters.sched_priority = priority;
        if (pthread_attr_setschedpolicy(&native_, policy) != 0) return;
        if (pthread_attr_setschedparam(&native_, &parameters) != 0) return;
        // Policy and priority count only from here on; before, the thread inherits its creator's.
        pthread_attr_setinheritsched(&native_, PTHREAD_EXPLICIT_SCHED);
    }

    int create(pthread_t& handle, Start* start) const {
        return pthread_create(&handle, &native_, ko_thread_main, start);
    }

 private:
    pthread_attr_t native_{};
};

int create(pthread_t& handle, const thread::attributes& wishes, Start* start) {
    NativeAttributes native;
    if (wishes.stack_size() != 0) native.set_stack_size(wishes.stack_size());
    if (wishes.has_scheduler()) native.set_scheduler(wishes.scheduler_policy(), wishes.scheduler_priority());
    return native.create(handle, start);
}

thread::attributes without_scheduler(const thread::attributes& wishes) {
    thread::attributes fewer;
    fewer.set_stack_size(wishes.stack_size());
    return fewer;
}

}  // namespace

thread_id this_thread::get_id() noexcept {
    return pthread_self();
}

thread::thread(thread&& other) noexcept : id_(std::exchange(other.id_, invalid_thread_id)) {}

thread& thread::operator=(thread&& other) noexcept {
    KO_ASSERT(!joinable());
    id_ = std::exchange(other.id_, invalid_thread_id);
    return *this;
}

thread::~thread() {
    KO_ASSERT(!joinable());
}

thread thread::create_thread(const char* name, const attributes& attributes, thread_id& id,
                             const std::function<void()>& body) {
    auto start = std::make_unique<Start>(Start{std::string(name).substr(0, longest_name), body});
    pthread_t handle{};
    // A real-time scheduler usually needs a privilege, and a stack may be more than there is: better a plain thread
    // than none.
    int error = create(handle, attributes, start.get());
    if (error != 0) error = create(handle, without_scheduler(attributes), start.get());
    if (error != 0) error = create(handle, {}, start.get());
    KO_ASSERT(error == 0);
    static_cast<void>(start.release());  // the new thread's now
    id = handle;
    return thread(handle);
}

void thread::join() {
    KO_ASSERT(joinable());
    const int error = pthread_join(id_, nullptr);
    KO_ASSERT(error == 0);
    id_ = invalid_thread_id;
}

}  // namespace ko
