// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

extern "C" {

void tovanlog_write(int severity, int channel, const char* text, std::size_t length);
[[noreturn]] void tovanlog_fatal(const char* format, ...) __attribute__((format(printf, 1, 2)));
}
