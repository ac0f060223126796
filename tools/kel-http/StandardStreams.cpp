// SPDX-License-Identifier: MIT
#include "StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace kel::http::tool {

void occupy_standard_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) >= 0) continue;
        // The lowest number that is free. The wrong way round, so that its users fail.
        if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) {
            throw std::system_error(errno, std::generic_category(), "/dev/null");
        }
    }
}

}  // namespace kel::http::tool
