// SPDX-License-Identifier: MIT
#include "client/FolderWatch.h"

#include <sys/inotify.h>

#include <array>
#include <cstring>

#include "support/Sockets.h"

namespace kel::http::test {
namespace {

const char* wordFor(std::uint32_t event) {
    if ((event & IN_CREATE) != 0) return "create ";
    if ((event & IN_MOVED_FROM) != 0) return "from ";
    if ((event & IN_MOVED_TO) != 0) return "to ";
    return "remove ";
}

}  // namespace

FolderWatch::FolderWatch(const std::string& folder) : watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const std::uint32_t events = IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;
    if (watch_.get() < 0 || inotify_add_watch(watch_.get(), folder.c_str(), events) < 0) throwErrno(folder.c_str());
}

std::vector<std::string> FolderWatch::events() {
    std::vector<std::string> events;
    std::array<char, 65536> bytes;
    for (ssize_t count = 0; (count = read(watch_.get(), bytes.data(), bytes.size())) > 0;) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
            inotify_event event{};
            std::memcpy(&event, bytes.data() + at, sizeof(event));
            // The name is padded with zeros.
            events.push_back(wordFor(event.mask) + std::string(bytes.data() + at + sizeof(event)));
            at += sizeof(event) + event.len;
        }
    }
    return events;
}

}  // namespace kel::http::test
