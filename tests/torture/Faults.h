// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

// The failures that this program meets with: calls of one kind, made by one kind of thread, from the first-th one on.
// The calls themselves are interposed in Failing*.cpp, for the whole program with all of its libraries.
namespace kel::http::torture {

// What kind of call fails.
enum class Kind {
    memory,  // for memory
    file,    // about files, folders and devices; never about sockets
    piece,   // reads and writes of files, which then do half of what they could
    curl     // of libcurl, where it says that there is no memory
};

// Whose calls. A thread's role goes on to those that it starts: a caller's become the engine's.
enum class Role { bystander, caller, engine };

struct Plan {
    Kind kind = Kind::memory;
    Role role = Role::caller;
    // The first call that fails, counted from 1, and how many do from there on.
    long first = 1;
    long count = 1;
};

// Gives the thread a role as long as it lives; without one a thread is a bystander.
class Acting {
 public:
    explicit Acting(Role role);
    ~Acting();
    Acting(const Acting&) = delete;
    Acting& operator=(const Acting&) = delete;

 private:
    const Role before_;
};

Role roleOfThread();
void setRoleOfThread(Role role);

namespace faults {

// Counts and fails from now on. No thread with a role other than the bystander's may run yet.
void arm(const Plan& plan);
// Stops and goes on counting.
void suspend();
void resume();

// Whether a call has failed since arm(), of any kind or of this one, and whether this one has, by its name.
bool fired();
bool firedFor(Kind kind);
bool failed(const char* call);

// Writes the first failure's call and where it was made. Allocates nothing.
void writeSite(int descriptor);

// For the interposed functions: whether calls of this kind are counted here at all, and whether this one has to fail.
// `detail` says more of the call, such as the number of an option.
bool concerns(Kind kind) noexcept;
bool strike(Kind kind, const char* call, long detail = 0) noexcept;

}  // namespace faults
}  // namespace kel::http::torture
