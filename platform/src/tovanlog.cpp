// SPDX-License-Identifier: MIT
#include "logging/tovanlog.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "log_sink.h"

namespace {

constexpr int fatal_severity = 2;

std::string_view without_line_feed(std::string_view text) {
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    return text;
}

}  // namespace

void tovanlog_write(int severity, int /*channel*/, const char* text, std::size_t length) {
    logging::send_to_sink({"tovanlog", severity, without_line_feed({text, length})});
}

void tovanlog_fatal(const char* format, ...) {
    std::array<char, 1024> message{};
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);

    const auto shown = std::min(static_cast<std::size_t>(std::max(length, 0)), message.size() - 1);
    const std::string_view text = without_line_feed({message.data(), shown});
    tovanlog_write(fatal_severity, 0, text.data(), text.size());
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
    std::abort();
}
