// SPDX-License-Identifier: MIT
#include "NginxProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include "Sockets.h"

namespace kel::http::test {

namespace {

// Everything the new process needs, made before it starts: between fork() and execve() nothing may be allocated.
struct Launch {
    pid_t parent;
    int log;
    const std::vector<int>& listening_sockets;
    rlimit descriptors;
    char* const* arguments;
    char* const* environment;
};

// New process.
[[noreturn]] void becomeNginx(const Launch& launch) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // SIGKILL would leave its worker behind
    if (getppid() != launch.parent) _exit(1);
    setrlimit(RLIMIT_NOFILE, &launch.descriptors);
    dup2(launch.log, STDOUT_FILENO);
    dup2(launch.log, STDERR_FILENO);
#if defined(SYS_close_range) && defined(CLOSE_RANGE_CLOEXEC)
    // A connection of the test that lived on in here would not end when the test closes it.
    syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
#endif
    for (const int socket : launch.listening_sockets) fcntl(socket, F_SETFD, 0);
    execve(launch.arguments[0], launch.arguments, launch.environment);
    _exit(1);
}

}  // namespace

void NginxProcess::start(const std::string& directory, const std::string& configuration_file,
                         const std::string& log_file, const std::vector<int>& listening_sockets) {
    // nginx takes over the sockets this variable lists: its own way of handing them to a newer nginx.
    std::string sockets = "NGINX=";
    for (const int socket : listening_sockets) sockets += std::to_string(socket) + ';';

    std::vector<std::string> words{KEL_TEST_NGINX, "-p", directory, "-c", configuration_file};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    char* const environment[] = {sockets.data(), nullptr};

    const FileDescriptor log(open(log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (log.get() < 0) throwErrno("open");
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = std::min<rlim_t>(descriptors.rlim_max, 65536);

    const Launch launch{getpid(), log.get(), listening_sockets, descriptors, arguments.data(), environment};
    process_ = fork();
    if (process_ < 0) throwErrno("fork");
    if (process_ == 0) becomeNginx(launch);
}

void NginxProcess::stop() {
    if (process_ < 0) return;
    // It takes its worker along and ends after it: no socket is open any more when this returns.
    kill(process_, SIGTERM);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
}

}  // namespace kel::http::test
