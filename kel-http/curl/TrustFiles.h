// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "kel-http/curl/FileState.h"

namespace kel::http {

// The files that transfers trust, or present, by the names that libcurl is to know them by.
//
// libcurl goes by the name alone. What it has read of a CA file serves every handshake of a day, and a connection or a TLS
// session that was made under a name serves whoever gives the same one: a file that has been replaced, or withdrawn,
// would have no effect for as long. So a file that has changed gets another name, one that leads to the same file:
// "/etc/ssl/ca.pem", then "/etc/ssl/./ca.pem", "/etc/ssl//./ca.pem" and so on; a folder whose certificates have changed
// becomes "/etc/ssl/certs/.".
//
// No name ever stands for two states, whatever paths there are. The 32 paths used last are remembered. One that was
// forgotten may have changed meanwhile, so that from then on a path begins with a name that was never used, too. So does
// one that differs in the case of letters only: libcurl before 7.78 does not tell the two apart.
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

    // The same for a client's certificate. libcurl does not look at the key that goes with it, so the name stands for the
    // two of them: another key brings another name.
    const std::string& nameOfIdentity(const std::string& certificate, const std::string& key);

    // The same for folders, one or several with colons between them, and the certificates in them. Throws what
    // `requireRegularCertificates()` does.
    const std::string& nameOfFolders(const std::string& folders);

    // From now on each path has a name that was never used: nothing that was made before serves anybody.
    void startAnew();

 private:
    enum class Kind { authorities, identity, folders };
    struct Place {
        Kind kind;
        const char* option;
        const std::string& path;
        const std::string& key;
    };
    struct File {
        Kind kind = Kind::authorities;
        std::string path;
        std::string key;
        std::string name;
        FileState state;
        // Whether each change from now on would show in the state.
        bool certain = false;
        std::uint64_t lastUse = 0;
    };

    const std::string& nameOf(const Place& place);
    static FileState look(const Place& place);
    File* find(const Place& place);
    File& add(const Place& place);
    bool hasFreeName(const Place& place) const;
    std::string newName(const Place& place);

    std::vector<File> files;
    std::uint64_t uses = 0;
    std::uint64_t lastNumber = 0;
    bool hasForgotten = false;
};

// For how long a file that was `changed` then may change again without another time to tell it by. Not positive: each
// further change shows.
std::chrono::nanoseconds blindTimeLeft(const timespec& changed, std::chrono::system_clock::time_point now);

}  // namespace kel::http
