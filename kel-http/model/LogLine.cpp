// SPDX-License-Identifier: MIT
#include "kel-http/model/LogLine.h"

namespace kel::http {

// A line of usual length takes no memory: the buffer begins on the stack.
void writeFormatted(logging::Logger& logger, int level, std::string_view format, fmt::format_args arguments) noexcept {
    fmt::memory_buffer line;
    try {
        const fmt::string_view pattern(format.data(), format.size());
        fmt::vformat_to(fmt::format_context::iterator(line), pattern, arguments);
    } catch (...) {
        // A line that can not be formatted must not end a transfer; its pattern tells what was meant.
        logger.write(level, format);
        return;
    }
    logger.write(level, std::string_view(line.data(), line.size()));
}

}  // namespace kel::http
