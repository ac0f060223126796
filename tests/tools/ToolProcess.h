// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace kel::http::test {

// What a run of the tool came to.
struct ToolResult {
    int exit_code = -1;  // 128 and more: the number of a signal, as shells have it
    std::string out;
    std::string err;
};

// The tool as a child process, without the proxies and the passwords of this process's environment.
class ToolProcess {
 public:
    struct Input {
        std::string bytes;                     // for standard input
        std::vector<std::string> environment;  // "NAME=value", in addition
        std::string folder = {};               // where it runs; empty: here
        int terminal = -1;                     // takes standard error, which then is not in the result
        std::vector<int> closed = {};          // standard streams that it does not get
    };

    // Errors: std::system_error.
    explicit ToolProcess(const std::vector<std::string>& arguments) : ToolProcess(arguments, Input{}) {}
    ToolProcess(const std::vector<std::string>& arguments, const Input& input);
    // Ends a process that nobody has waited for.
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    void send(int signal) const;

    // Wait for so many lines on standard output, and for a text on standard error. Errors: DeadlineMissed.
    void awaitOutputLines(std::size_t count) const;
    void awaitErrorText(const std::string& text) const;

    // Waits for the end. Errors: DeadlineMissed.
    ToolResult wait();

 private:
    TemporaryDirectory streams_;
    pid_t process_ = -1;
};

// Runs the tool to its end.
ToolResult runTool(const std::vector<std::string>& arguments, const ToolProcess::Input& input = {});

}  // namespace kel::http::test
