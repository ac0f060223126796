// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/FileDescriptor.h"

namespace kel::http::test {

// A terminal for a child process: takes what is written to it, and knows what a person would see.
//
// Threads: the constructor's; one of its own reads.
class TestTerminal {
 public:
    // Errors: std::system_error.
    TestTerminal(unsigned short columns, unsigned short rows);
    ~TestTerminal();
    TestTerminal(const TestTerminal&) = delete;
    TestTerminal& operator=(const TestTerminal&) = delete;

    // The side of the child, to be its standard error.
    int descriptor() const { return child_side_.get(); }

    void resize(unsigned short columns, unsigned short rows) const;

    // Waits until `text` has been written so many times. Errors: DeadlineMissed.
    void await(const std::string& text, std::size_t times = 1);

    // Nothing more can be written; returns all that was.
    std::string close();

 private:
    void read();

    FileDescriptor own_side_;
    FileDescriptor child_side_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string written_;
    std::thread reader_;
};

// The lines that have been on the screen, with those that have left it at its upper end, after all of this has been
// written to it; without blanks at their ends. Knows what the bars use: carriage return, line feed, moving up, erasing
// the rest of a line and of the screen. Lines break at the right end; nothing moves up from the first row.
std::vector<std::string> screenAfter(const std::string& written, std::size_t columns = 80, std::size_t rows = 24);

}  // namespace kel::http::test
