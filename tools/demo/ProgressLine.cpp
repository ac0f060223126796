// SPDX-License-Identifier: MIT
#include "ProgressLine.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace kel::http::demo {
namespace {

constexpr std::size_t usual_columns = 80;
constexpr std::size_t most_columns = 110;

// 0: not a terminal.
std::size_t terminal_columns() {
    if (isatty(STDOUT_FILENO) == 0) return 0;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return usual_columns;
    return std::min<std::size_t>(size.ws_col, most_columns);
}

}  // namespace

ProgressLine::~ProgressLine() {
    if (shown_ != 0 && terminal_columns() != 0) std::puts("");
}

// The last report may come more than once.
void ProgressLine::show(std::uint64_t received, std::uint64_t total) {
    bar_.update(received, total);
    if (received == shown_) return;
    shown_ = received;
    const std::size_t columns = terminal_columns();
    if (columns == 0) {
        fmt::print("  {}\n", bar_.text());
    } else {
        // A line that fills the last column would wrap.
        fmt::print("\r{}", bar_.line(columns - 1));
    }
    std::fflush(stdout);
}

}  // namespace kel::http::demo
