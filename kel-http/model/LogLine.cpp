// SPDX-License-Identifier: MIT
#include "kel-http/model/LogLine.h"

#include <string>

namespace kel::http {

// By the function that the formatting library exports: what its templates would add here is as large as all the rest of
// the records.
void writeFormatted(logging::Logger& logger, int level, std::string_view format, fmt::format_args arguments) noexcept {
    std::string line;
    try {
        line = fmt::vformat(fmt::string_view(format.data(), format.size()), arguments);
    } catch (...) {
        // A line that can not be formatted must not end a transfer; its pattern tells what was meant.
        logger.write(level, format);
        return;
    }
    logger.write(level, line);
}

}  // namespace kel::http
