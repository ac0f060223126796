// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "FileDescriptor.h"

namespace kel::http::test {

// One server program in the foreground, stopped at the end of this object's life. It also dies with the thread that
// started it.
class ServerProcess {
 public:
    struct Program {
        // The path of the program, then its arguments.
        std::vector<std::string> words;
        // "NAME=value"; nothing else is passed on.
        std::vector<std::string> environment = {};
        // Takes all that it prints.
        std::string log_file = {};
        // Descriptors that it inherits under the same numbers.
        std::vector<int> inherited = {};
        // Ends the program, and all that it has started, at once.
        int stop_signal = SIGTERM;
        // Whether root gives its rights away first. The files that the program needs must be open to everybody.
        bool as_nobody = false;
    };

    ServerProcess() = default;
    ~ServerProcess() { stop(); }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Errors: std::system_error. What happens in the new process stands in the log file only.
    void start(const Program& program);

    // Waits until `text` stands in the log file.
    //
    // Errors: std::runtime_error, with the whole log, when the program ends before; DeadlineMissed.
    void awaitOutput(const std::string& text) const;

    // Waits until it listens on `port`, which has been reserved for it: for programs whose log tells that too early.
    // Errors: the same.
    void awaitListening(std::uint16_t port) const;

    // Waits no longer than this for it to end by itself, and tells whether it has.
    bool awaitEnd(std::chrono::nanoseconds longest) const;

    // Ends it at once: no socket of its own is open any more when this returns. May be called again.
    void stop();

 private:
    std::string log_file_;
    int stop_signal_ = SIGTERM;
    pid_t process_ = -1;
    FileDescriptor life_line_;  // the process has the only other end
};

}  // namespace kel::http::test
