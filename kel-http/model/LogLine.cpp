// SPDX-License-Identifier: MIT
#include "kel-http/model/LogLine.h"

#include <iterator>

namespace kel::http {

// A line of usual length takes no memory: the buffer begins on the stack.
void writeFormatted(logging::Logger& logger, int level, std::string_view format, fmt::format_args arguments) noexcept {
    fmt::memory_buffer line;
    try {
        fmt::vformat_to(std::back_inserter(line), fmt::string_view(format.data(), format.size()), arguments);
    } catch (...) {
        // A line that can not be formatted must not end a transfer; its pattern tells what was meant.
        logger.write(level, format);
        return;
    }
    logger.write(level, std::string_view(line.data(), line.size()));
}

}  // namespace kel::http
