// SPDX-License-Identifier: MIT
#include "ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string_view>
#include <system_error>

#include "AwaitFile.h"
#include "support/Deadline.h"
#include "support/Emulator.h"
#include "support/FileDescriptor.h"
#include "support/Files.h"

namespace kel::http::test {
namespace {

bool reachesTool(std::string_view variable) {
    const std::string_view name = variable.substr(0, variable.find('='));
    const auto endsWith = [name](std::string_view end) {
        return name.size() >= end.size() && name.substr(name.size() - end.size()) == end;
    };
    return name != "XDG_RUNTIME_DIR" && !endsWith("_proxy") && !endsWith("_PROXY") && !endsWith("_PASSWORD");
}

bool areOfOneName(std::string_view variable, std::string_view other) {
    return variable.substr(0, variable.find('=')) == other.substr(0, other.find('='));
}

constexpr const char* session_folder = "XDG_RUNTIME_DIR=";

bool hasSessionFolder(const std::vector<std::string>& variables) {
    return std::any_of(variables.begin(), variables.end(),
                       [](const std::string& variable) { return variable.find(session_folder) == 0; });
}

// Each variable once: which one of two counts is not said.
std::vector<std::string> environmentOfTool(const std::vector<std::string>& additions) {
    std::vector<std::string> variables = additions;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const auto isReplaced = [&](const std::string& addition) { return areOfOneName(addition, *variable); };
        if (!reachesTool(*variable) || std::any_of(additions.begin(), additions.end(), isReplaced)) continue;
        variables.emplace_back(*variable);
    }
    return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Signals as a program started by hand has them, however this one was started.
void setUsualSignals(posix_spawnattr_t& attributes) {
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

}  // namespace

ToolProcess::ToolProcess(const std::vector<std::string>& arguments, const Input& input) {
    writeWholeFile(streams_.path("in"), input.bytes);
    // There from the beginning, so that they can be watched.
    for (const char* const name : {"out", "err"}) writeWholeFile(streams_.path(name), "");
    std::vector<std::string> words = commandOf("kel-http");
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = environmentOfTool(input.environment);
    // No run finds the cookies of another one, unless it is to.
    if (!hasSessionFolder(variables)) variables.push_back(session_folder + streams_.path());

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int create = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, streams_.path("in").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, streams_.path("out").c_str(), create, 0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, streams_.path("err").c_str(), create, 0600);
    if (input.terminal >= 0) posix_spawn_file_actions_adddup2(&files, input.terminal, STDERR_FILENO);
    for (const int stream : input.closed) posix_spawn_file_actions_addclose(&files, stream);
    if (!input.folder.empty()) posix_spawn_file_actions_addchdir_np(&files, input.folder.c_str());
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    setUsualSignals(attributes);
    const int error = posix_spawn(&process_, words[0].c_str(), &files, &attributes, pointersTo(words).data(),
                                  pointersTo(variables).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
}

ToolProcess::~ToolProcess() {
    if (process_ < 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void ToolProcess::send(int signal) const {
    kill(process_, signal);
}

void ToolProcess::awaitOutputLines(std::size_t count) const {
    awaitLines(streams_.path("out"), count);
}

void ToolProcess::awaitErrorText(const std::string& text) const {
    const std::string path = streams_.path("err");
    awaitFile(path, '"' + text + '"', [&] { return readWholeFile(path).find(text) != std::string::npos; });
}

ToolResult ToolProcess::wait() {
    const FileDescriptor end(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)));
    pollfd watched{end.get(), POLLIN, 0};
    constexpr auto milliseconds = static_cast<int>(std::chrono::milliseconds(Deadline).count());
    if (poll(&watched, 1, milliseconds) == 0) throw DeadlineMissed("the end of kel-http");

    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    ToolResult result;
    result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readWholeFile(streams_.path("out"));
    result.err = readWholeFile(streams_.path("err"));
    return result;
}

ToolResult runTool(const std::vector<std::string>& arguments, const ToolProcess::Input& input) {
    return ToolProcess(arguments, input).wait();
}

}  // namespace kel::http::test
