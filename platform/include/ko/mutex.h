// SPDX-License-Identifier: MIT
#ifndef KO_MUTEX_H
#define KO_MUTEX_H

#include <mutex>

#include "ko/thread_annotations.h"

namespace ko {

// A lock with a name, by which a device's diagnostics know it. Not recursive: a thread that locks it twice hangs.
//
// Threads:   any. Unlocked by the thread that locked it.
// Ownership: `name` is not copied and has to live as long as the mutex; a literal is meant.
class KO_CAPABILITY("mutex") mutex {
 public:
    // An unlocked mutex.
    explicit mutex(const char* name) noexcept : name_(name) {}
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

    // Waits until no other thread holds the lock, and takes it.
    void lock() KO_ACQUIRE() { mutex_.lock(); }
    // Lets it go.
    void unlock() KO_RELEASE() { mutex_.unlock(); }
    // True when the lock is now held; false at once when another thread holds it.
    bool try_lock() KO_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

    // As given.
    const char* name() const noexcept { return name_; }

 private:
    friend class condition;

    std::mutex mutex_;
    const char* name_;
};

// Holds a mutex from its construction to the end of its scope.
class KO_SCOPED_CAPABILITY lock_guard {
 public:
    // Waits for the lock.
    explicit lock_guard(ko::mutex& mutex) KO_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~lock_guard() KO_RELEASE() { mutex_.unlock(); }
    lock_guard(const lock_guard&) = delete;
    lock_guard& operator=(const lock_guard&) = delete;

 private:
    ko::mutex& mutex_;
};

}  // namespace ko

#endif  // KO_MUTEX_H
