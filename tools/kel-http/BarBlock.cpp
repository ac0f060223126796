// SPDX-License-Identifier: MIT
#include "BarBlock.h"

#include <fmt/format.h>

#include "Files.h"
#include "common/TerminalText.h"

namespace kel::http::tool {
namespace {

constexpr auto erase_rest_of_line = "\x1b[K";
constexpr auto erase_rest_of_screen = "\x1b[J";

// A line that fills all columns would make some terminals begin another one.
std::size_t width_on(TerminalSize size) {
    return size.columns - 1;
}

}  // namespace

// A terminal that has become narrower since has broken the lines.
std::string BarBlock::to_begin(TerminalSize size) const {
    std::size_t rows = 0;
    for (const std::size_t width : widths_) rows += 1 + (width == 0 ? 0 : (width - 1) / size.columns);
    return rows == 0 ? "\r" : fmt::format("\r\x1b[{}A", rows);
}

void BarBlock::draw(const std::vector<const ProgressBar*>& bars, TerminalSize size) {
    std::string text = to_begin(size);
    widths_.clear();
    const auto add = [&](const std::string& line) {
        text += line + erase_rest_of_line + "\n";
        widths_.push_back(columns_of(line));
    };
    // One row is the cursor's.
    const bool all_fit = bars.size() < size.rows;
    const std::size_t shown = all_fit ? bars.size() : size.rows < 2 ? 0 : size.rows - 2;
    for (std::size_t i = 0; i < shown; ++i) add(bars[i]->line(width_on(size)));
    if (!all_fit) add(fmt::format("{} more", bars.size() - shown).substr(0, width_on(size)));
    write_to_stderr(text + erase_rest_of_screen);
}

void BarBlock::leave_above(const ProgressBar& bar, TerminalSize size) {
    write_to_stderr(to_begin(size) + bar.line(width_on(size)) + erase_rest_of_line + "\n" + erase_rest_of_screen);
    widths_.clear();
}

void BarBlock::erase(TerminalSize size) {
    if (widths_.empty()) return;
    write_to_stderr(to_begin(size) + erase_rest_of_screen);
    widths_.clear();
}

}  // namespace kel::http::tool
