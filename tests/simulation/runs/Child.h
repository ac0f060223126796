// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "support/FileDescriptor.h"

namespace kel::http::simulation {

// A process that is this one once more: it does some work, tells about it in lines, and may die of it or hang.
//
// Not while there is another thread, or a world.
class Child {
 public:
    using Tell = std::function<void(const std::string& line)>;

    // Whether memory that the work leaves behind is an ending: where LeakSanitizer is in the process.
    static bool looksForLeaks();

    // Begins at once. What the work writes to standard error is kept; its standard input is empty.
    explicit Child(const std::function<void(const Tell&)>& work);
    // Kills it if it still runs.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Readable when receive() has something to do.
    int descriptor() const { return lines_.get(); }
    // Reads what it has told so far. False: that was all, it has ended.
    bool receive();
    bool takeLine(std::string& line);

    // What it died of: "dies of Aborted: Assertion 'x' failed", empty if of nothing. Waits for its end.
    std::string ending();
    // What it has written to standard error, the beginning of it.
    std::string errors() const;
    void kill() const;

 private:
    [[noreturn]] void run(const std::function<void(const Tell&)>& work, int lines);

    pid_t process_ = -1;
    test::FileDescriptor lines_;
    test::FileDescriptor errors_;
    std::string received_;
};

}  // namespace kel::http::simulation
