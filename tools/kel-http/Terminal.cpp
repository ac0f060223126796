// SPDX-License-Identifier: MIT
#include "Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace kel::http::tool {

bool is_terminal_for_bars() {
    const char* const kind = std::getenv("TERM");
    return isatty(STDERR_FILENO) == 1 && (kind == nullptr || std::string_view(kind) != "dumb");
}

TerminalSize terminal_size() {
    winsize size{};
    const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0;
    return is_known ? TerminalSize{size.ws_col, size.ws_row} : TerminalSize{80, 24};
}

}  // namespace kel::http::tool
