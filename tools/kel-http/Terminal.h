// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kel::http::tool {

struct TerminalSize {
    std::size_t columns;
    std::size_t rows;
};

// Whether standard error is a terminal on which the cursor can be moved.
bool is_terminal_for_bars();

// Its size now. A terminal that does not know its own counts as the usual one.
TerminalSize terminal_size();

}  // namespace kel::http::tool
