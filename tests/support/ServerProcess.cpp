// SPDX-License-Identifier: MIT
#include "ServerProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>

#include "Deadline.h"
#include "Files.h"
#include "Sockets.h"

namespace kel::http::test {

namespace {

constexpr unsigned Nobody = 65534;

// Everything the new process needs, made before it starts: between fork() and execve() nothing may be allocated.
struct Launch {
    pid_t parent;
    int log;
    int life_line;
    const ServerProcess::Program& program;
    rlimit descriptors;
    char* const* arguments;
    char* const* environment;
};

// New process.
void becomeNobody() {
    if (geteuid() != 0) return;
    if (setgroups(0, nullptr) != 0 || setgid(Nobody) != 0 || setuid(Nobody) != 0) _exit(1);
}

// New process.
[[noreturn]] void become(const Launch& launch) {
    if (launch.program.as_nobody) becomeNobody();
    prctl(PR_SET_PDEATHSIG, launch.program.stop_signal);  // a change of user would undo it
    if (getppid() != launch.parent) _exit(1);
    setrlimit(RLIMIT_NOFILE, &launch.descriptors);
    dup2(launch.log, STDOUT_FILENO);
    dup2(launch.log, STDERR_FILENO);
#if defined(SYS_close_range) && defined(CLOSE_RANGE_CLOEXEC)
    // A connection of the test that lived on in here would not end when the test closes it.
    syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
#endif
    for (const int descriptor : launch.program.inherited) fcntl(descriptor, F_SETFD, 0);
    fcntl(launch.life_line, F_SETFD, 0);
    execve(launch.arguments[0], launch.arguments, launch.environment);
    _exit(1);
}

std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

rlimit raisedDescriptors() {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = std::min<rlim_t>(descriptors.rlim_max, 65536);
    return descriptors;
}

int millisecondsTo(std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

bool hasEnded(const FileDescriptor& life_line) {
    pollfd ended{life_line.get(), 0, 0};
    return poll(&ended, 1, 0) == 1;
}

}  // namespace

void ServerProcess::start(const Program& program) {
    log_file_ = program.log_file;
    stop_signal_ = program.stop_signal;
    const FileDescriptor log(open(log_file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (log.get() < 0) throwErrno("open");
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throwErrno("pipe2");
    life_line_ = FileDescriptor(ends[0]);
    const FileDescriptor other_end(ends[1]);

    std::vector<std::string> words = program.words;
    std::vector<std::string> variables = program.environment;
    const std::vector<char*> arguments = pointersTo(words);
    const std::vector<char*> environment = pointersTo(variables);
    const Launch launch{getpid(),         log.get(),         other_end.get(), program, raisedDescriptors(),
                        arguments.data(), environment.data()};
    process_ = fork();
    if (process_ < 0) throwErrno("fork");
    if (process_ == 0) become(launch);
}

void ServerProcess::awaitOutput(const std::string& text) const {
    const FileDescriptor watch = watchForWrites(log_file_);
    const auto end = std::chrono::steady_clock::now() + Deadline;
    for (;;) {
        // Asked before the log is read: its last words count.
        const bool ended = hasEnded(life_line_);
        const std::string log = readWholeFile(log_file_);
        if (log.find(text) != std::string::npos) return;
        if (ended) throw std::runtime_error("a server has ended: " + log);

        std::array<pollfd, 2> events{{{watch.get(), POLLIN, 0}, {life_line_.get(), 0, 0}}};
        if (poll(events.data(), events.size(), millisecondsTo(end)) == 0) throw DeadlineMissed(text + " in: " + log);
        forgetWrites(watch);
    }
}

void ServerProcess::awaitListening(std::uint16_t port) const {
    const auto end = std::chrono::steady_clock::now() + Deadline;
    while (!isListenedOn(port)) {
        // Nothing tells of it, so it is asked for again and again.
        pollfd ended{life_line_.get(), 0, 0};
        if (poll(&ended, 1, 1) != 0) throw std::runtime_error("a server has ended: " + readWholeFile(log_file_));
        if (millisecondsTo(end) == 0) throw DeadlineMissed("a server's socket; its log: " + readWholeFile(log_file_));
    }
}

bool ServerProcess::awaitEnd(std::chrono::nanoseconds longest) const {
    pollfd ended{life_line_.get(), 0, 0};
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(longest);
    const timespec left{static_cast<time_t>(seconds.count()), static_cast<long>((longest - seconds).count())};
    return ppoll(&ended, 1, &left, nullptr) == 1;
}

void ServerProcess::stop() {
    if (process_ < 0) return;
    kill(process_, stop_signal_);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
    life_line_.reset();
}

}  // namespace kel::http::test
