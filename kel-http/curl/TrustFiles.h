// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace kel::http {

// The CA files that transfers trust, by the names that libcurl is to know them by.
//
// libcurl goes by the name alone. What it has read of a file serves every handshake of a day, and a connection or a TLS
// session that was made under a name serves whoever gives the same one: a file that has been replaced, or withdrawn,
// would have no effect for as long. So a file that has changed gets another name, one that leads to the same file:
// "/etc/ssl/ca.pem", then "/etc/ssl/./ca.pem", "/etc/ssl//./ca.pem" and so on.
//
// No name ever stands for two states, whatever paths there are. The 32 paths used last are remembered. One that was
// forgotten may have changed meanwhile, so that from then on a path begins with a name that was never used, too.
//
// Engine thread.
class TrustFiles {
 public:
    static constexpr std::size_t Remembered = 32;

    // What to call the file at `path` now: the same as before if it has not changed, come or gone since; at first `path`
    // itself, unless it ends like one of the names given to others. Borrowed until the next call.
    //
    // Costs one stat(2). When a file has changed within the last 10 ms, the thread waits for the rest of them, after which
    // no further change can look like this one; where times are whole seconds, each call brings a new name meanwhile.
    // Throws what `requireRegularFile()` does, and std::bad_alloc; then nothing has been changed.
    const std::string& nameOf(const char* option, const std::string& path);

 private:
    // By what a changed file is told. Nothing is set for one that is not there.
    struct State {
        State() = default;
        explicit State(const struct stat& status);
        bool operator==(const State& other) const;

        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec written{};
        timespec changed{};
    };
    struct File {
        std::string path;
        std::string name;
        State state;
        // Whether each change from now on would show in the state.
        bool certain = false;
        std::uint64_t lastUse = 0;
    };

    static State look(const char* option, const std::string& path);
    File* find(const std::string& path);
    File& add(const std::string& path);

    std::vector<File> files;
    std::uint64_t uses = 0;
    std::uint64_t lastNumber = 0;
    bool hasForgotten = false;
};

// For how long a file that was `changed` then may change again without another time to tell it by. Not positive: each
// further change shows.
std::chrono::nanoseconds blindTimeLeft(const timespec& changed, std::chrono::system_clock::time_point now);

}  // namespace kel::http
