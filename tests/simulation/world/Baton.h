// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "world/Time.h"

namespace kel::http::simulation {

// What a thread waits for: one of these descriptors (as poll(2) has them), another thread's end, or the time.
struct Wait {
    std::vector<pollfd> descriptors;
    Time until = Never;
    // 0: nobody's.
    pthread_t other = 0;
};

// A semaphore: unlike a condition variable it is none of the functions that a world has of its own.
class Signal {
 public:
    Signal() { sem_init(&semaphore_, 0, 0); }
    ~Signal() { sem_destroy(&semaphore_); }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    void give() { sem_post(&semaphore_); }
    void take() {
        while (sem_wait(&semaphore_) != 0) {
        }
    }

 private:
    sem_t semaphore_{};
};

// A thread of the library or of libcurl. It runs only while it has the baton.
struct Party {
    std::string name;
    pthread_t thread = 0;
    std::function<void()> body;
    Wait wait;
    bool ended = false;
    // Nobody will ask for its end any more.
    bool released = false;
    Signal turn;
};

// Lets one thread of the process run at a time: that of the simulator, which decides who is next, or one of its parties,
// until that waits for something or ends.
class Baton {
 public:
    Baton() : simulator_(pthread_self()) {}
    Baton(const Baton&) = delete;
    Baton& operator=(const Baton&) = delete;

    // --- the simulator's thread ---
    // A party has the baton until it parks again or has ended.
    void pass(Party& party);
    std::list<Party>& parties() { return parties_; }
    // Takes those away that have ended and that nobody will ask for any more.
    void bury();

    // --- any thread that has the baton ---
    // Makes a thread that runs nothing before it is given the baton. An error of pthread_create(3) or 0.
    int create(pthread_t* thread, const pthread_attr_t* attributes, const std::string& name,
               std::function<void()> body);
    Party* find(pthread_t thread);
    bool isSimulator() const { return pthread_equal(pthread_self(), simulator_) != 0; }

    // --- a party's thread ---
    // Gives the baton back until the simulator passes it here again.
    void park(Wait wait);

 private:
    static void* enter(void* party);

    const pthread_t simulator_;
    Signal back_;
    std::list<Party> parties_;
};

}  // namespace kel::http::simulation
