// SPDX-License-Identifier: MIT
#include "runs/Child.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <sstream>

#include "support/Sockets.h"

// Defined by the sanitizer's own library, where there is one.
extern "C" {
[[gnu::weak]] int __lsan_do_recoverable_leak_check();  // NOLINT(bugprone-reserved-identifier)
}

namespace kel::http::simulation {
namespace {

using test::FileDescriptor;

constexpr std::size_t most_errors = 8000;
constexpr int status_of_leak = 23;
constexpr int status_of_exception = 24;

void write(int descriptor, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count < 0) _exit(status_of_exception);
        done += static_cast<std::size_t>(count);
    }
}

// The line that says most: that of a failed assertion or of a sanitizer, else the first one.
std::string gist(const std::string& errors) {
    std::istringstream lines(errors);
    std::string first;
    for (std::string line; std::getline(lines, line);) {
        for (const char* const word : {"Assertion", "ERROR: ", "WARNING: ThreadSanitizer", "runtime error: "}) {
            const std::size_t found = line.find(word);
            if (found != std::string::npos) return line.substr(found);
        }
        if (first.empty()) first = line;
    }
    return first;
}

}  // namespace

bool Child::looksForLeaks() {
    return __lsan_do_recoverable_leak_check != nullptr;
}

Child::Child(const std::function<void(const Tell&)>& work) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) test::throwErrno("pipe2");
    lines_ = FileDescriptor(ends[0]);
    const FileDescriptor writing(ends[1]);
    errors_ = FileDescriptor(memfd_create("errors", MFD_CLOEXEC));
    if (errors_.get() < 0) test::throwErrno("memfd_create");
    process_ = fork();
    if (process_ < 0) test::throwErrno("fork");
    if (process_ == 0) run(work, writing.get());
}

void Child::run(const std::function<void(const Tell&)>& work, int lines) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a run that is interrupted leaves nobody behind who hangs
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDIN_FILENO);
    dup2(errors_.get(), STDERR_FILENO);
    try {
        work([lines](const std::string& line) { write(lines, line + '\n'); });
    } catch (const std::exception& error) {
        write(STDERR_FILENO, std::string(error.what()) + '\n');
        _exit(status_of_exception);
    }
    // What the parent has registered for its own end is not this one's.
    const bool leaks = looksForLeaks() && __lsan_do_recoverable_leak_check() != 0;
    _exit(leaks ? status_of_leak : 0);
}

Child::~Child() {
    kill();
    ending();
}

void Child::kill() const {
    if (process_ > 0) ::kill(process_, SIGKILL);
}

bool Child::receive() {
    std::array<char, 65536> bytes{};
    const ssize_t count = read(lines_.get(), bytes.data(), bytes.size());
    if (count < 0) return errno == EINTR;
    received_.append(bytes.data(), static_cast<std::size_t>(count));
    return count > 0;
}

bool Child::takeLine(std::string& line) {
    const std::size_t end = received_.find('\n');
    if (end == std::string::npos) return false;
    line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return true;
}

std::string Child::ending() {
    if (process_ < 0) return {};
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
    if (WIFEXITED(status) && WEXITSTATUS(status) == status_of_leak) return "leaves memory behind: " + gist(errors());
    return "dies of " +
           (WIFSIGNALED(status) ? std::string(strsignal(WTERMSIG(status)))
                                : "exit status " + std::to_string(WEXITSTATUS(status))) +
           ": " + gist(errors());
}

std::string Child::errors() const {
    std::string text(most_errors, '\0');
    const ssize_t count = pread(errors_.get(), text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

}  // namespace kel::http::simulation
