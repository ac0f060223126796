// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Terminal.h"
#include "common/ProgressBar.h"

namespace kel::http::tool {

// Bars at the lower end of what a terminal shows, redrawn in place. The cursor stands in the line below them.
//
// All goes out in one write for each call, so that nothing flickers.
class BarBlock {
 public:
    // One for each; where the terminal has fewer rows the last ones are only counted.
    void draw(const std::vector<const ProgressBar*>& bars, TerminalSize size);

    // A bar that does not move any more goes above the block, for good; the block vanishes until it is drawn again.
    void leave_above(const ProgressBar& bar, TerminalSize size);

    // Nothing is left of it.
    void erase(TerminalSize size);

 private:
    std::string to_begin(TerminalSize size) const;

    std::vector<std::size_t> widths_;  // of the lines that are drawn
};

}  // namespace kel::http::tool
