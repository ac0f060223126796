// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/FileDescriptor.h"

namespace kel::http::torture {

// A torture_process. Its standard input is a pipe with a secret in it that nobody closes: who reads it sends the secret or
// waits for ever. Its outputs are one stream of lines.
class Child {
 public:
    static constexpr const char* secret = "WHAT-STANDS-IN-STANDARD-INPUT\n";

    explicit Child(const std::vector<std::string>& arguments);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    enum class Event { line, silence, end };
    // The next line, if it comes within that time.
    Event next(std::string& line, std::chrono::seconds longest);

    // What its threads do, as far as there is a debugger to tell.
    std::vector<std::string> stacks() const;
    void kill() const;
    // Waits for its end.
    int status();

 private:
    bool takeLine(std::string& line);

    pid_t process_ = -1;
    test::FileDescriptor input_;
    test::FileDescriptor output_;
    std::string received_;
};

}  // namespace kel::http::torture
