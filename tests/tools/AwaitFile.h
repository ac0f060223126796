// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <chrono>
#include <string>

#include "support/Deadline.h"
#include "support/Files.h"

namespace kel::http::test {

// Waits until `happened()` holds, which is asked again whenever somebody has written to the file `path`. The file has to
// be there already.
//
// Errors: DeadlineMissed, naming `awaited`, when nobody writes any more.
template <typename Predicate>
void awaitFile(const std::string& path, const std::string& awaited, Predicate happened) {
    // Watched before it is looked at: no write can come unnoticed in between.
    const FileDescriptor watch = watchForWrites(path);
    while (!happened()) {
        pollfd written{watch.get(), POLLIN, 0};
        constexpr auto milliseconds = static_cast<int>(std::chrono::milliseconds(Deadline).count());
        if (poll(&written, 1, milliseconds) == 0) throw DeadlineMissed(awaited + " in " + path);
        forgetWrites(watch);
    }
}

}  // namespace kel::http::test
