// SPDX-License-Identifier: MIT
#include "ko/mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Waiting.h"
#include "ko/condition.h"

namespace {

TEST(MutexTest, KeepsItsName) {
    const ko::mutex mutex("QueueMutex");
    EXPECT_STREQ("QueueMutex", mutex.name());
}

TEST(MutexTest, GuardLetsOneThreadInAtATime) {
    ko::mutex mutex("Counter");
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                const ko::lock_guard lock(mutex);
                ++count;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(4000, count);
}

bool other_thread_can_lock(ko::mutex& mutex) {
    bool locked = false;
    std::thread([&] {
        if (mutex.try_lock()) {
            locked = true;
            mutex.unlock();
        }
    }).join();
    return locked;
}

TEST(MutexTest, TryLockFailsOnlyWhileAnotherThreadHoldsTheLock) {
    ko::mutex mutex("Tried");
    mutex.lock();
    const bool while_locked = other_thread_can_lock(mutex);
    mutex.unlock();
    EXPECT_FALSE(while_locked);
    EXPECT_TRUE(other_thread_can_lock(mutex));
}

TEST(MutexTest, ConditionReleasesTheLockWhileItWaits) {
    ko::mutex mutex("Waited");
    ko::condition condition;
    bool ready = false;
    std::thread waker([&] {
        const ko::lock_guard lock(mutex);
        ready = true;
        condition.notify_one();
    });
    mutex.lock();
    while (!ready) condition.wait(mutex);
    mutex.unlock();
    waker.join();
    EXPECT_TRUE(ready);
}

}  // namespace
