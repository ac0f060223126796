// SPDX-License-Identifier: MIT
#include "Files.h"

#include <poll.h>
#include <sys/inotify.h>

#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Deadline.h"
#include "Sockets.h"

namespace kel::http::test {

namespace {

// Returns whether there has been a write before `end`.
bool awaitWrite(const FileDescriptor& watch, std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd written{watch.get(), POLLIN, 0};
    if (poll(&written, 1, static_cast<int>(left.count())) == 0) return false;
    forgetWrites(watch);
    return true;
}

}  // namespace

void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw std::runtime_error("can not write " + path);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("can not read " + path);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::vector<std::string> readLines(const std::string& path) {
    const std::string text = readWholeFile(path);
    std::istringstream complete(text.substr(0, text.rfind('\n') + 1));
    std::vector<std::string> lines;
    for (std::string line; std::getline(complete, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> awaitLines(const std::string& path, std::size_t count) {
    // Watched before it is read: no line can come unnoticed in between.
    const FileDescriptor watch = watchForWrites(path);
    const auto end = std::chrono::steady_clock::now() + Deadline;
    for (;;) {
        std::vector<std::string> lines = readLines(path);
        if (lines.size() >= count) return lines;
        if (!awaitWrite(watch, end)) throw DeadlineMissed(std::to_string(count) + " lines in " + path);
    }
}

FileDescriptor watchForWrites(const std::string& path) {
    FileDescriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (watch.get() < 0 || inotify_add_watch(watch.get(), path.c_str(), IN_MODIFY) < 0) throwErrno(path.c_str());
    return watch;
}

void forgetWrites(const FileDescriptor& watch) {
    std::array<char, 4096> events;
    while (read(watch.get(), events.data(), events.size()) > 0) {
    }
}

}  // namespace kel::http::test
