// SPDX-License-Identifier: MIT
#include "torture/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "support/Emulator.h"
#include "support/Sockets.h"

namespace kel::http::torture {
namespace {

using test::FileDescriptor;

struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) test::throwErrno("pipe2");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

}  // namespace

Child::Child(const std::vector<std::string>& arguments) {
    Pipe input = makePipe();
    Pipe output = makePipe();
    if (write(input.writing.get(), secret, std::strlen(secret)) < 0) test::throwErrno("write");
    std::vector<std::string> words = test::commandOf("torture_process");
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input.reading.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, output.writing.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, output.writing.get(), STDERR_FILENO);
    const int error = posix_spawn(&process_, pointers[0], &files, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error(words.front() + ": " + std::strerror(error));
    input_ = std::move(input.writing);
    output_ = std::move(output.reading);
}

Child::~Child() {
    kill();
    status();
}

void Child::kill() const {
    if (process_ > 0) ::kill(process_, SIGKILL);
}

int Child::status() {
    int result = 0;
    if (process_ < 0) return result;
    while (waitpid(process_, &result, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
    return result;
}

bool Child::takeLine(std::string& line) {
    const std::size_t end = received_.find('\n');
    if (end == std::string::npos) return false;
    line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return true;
}

Child::Event Child::next(std::string& line, std::chrono::seconds longest) {
    while (!takeLine(line)) {
        pollfd readable{output_.get(), POLLIN, 0};
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(longest);
        if (poll(&readable, 1, static_cast<int>(milliseconds.count())) == 0) return Event::silence;
        std::array<char, 4096> bytes{};
        const ssize_t count = read(output_.get(), bytes.data(), bytes.size());
        if (count <= 0) return Event::end;
        received_.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return Event::line;
}

std::vector<std::string> Child::stacks() const {
    const std::string command =
        "gdb -p " + std::to_string(process_) +
        " -batch -nx -ex 'thread apply all backtrace 16' 2>/dev/null | grep -E '^(Thread|#)' | cut -c1-160";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    std::vector<std::string> lines;
    std::array<char, 1024> part{};
    while (pipe && std::fgets(part.data(), part.size(), pipe.get()) != nullptr) {
        lines.emplace_back(part.data());
        lines.back().erase(lines.back().find_last_not_of('\n') + 1);
    }
    return lines;
}

}  // namespace kel::http::torture
