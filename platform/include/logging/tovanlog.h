// SPDX-License-Identifier: MIT
#ifndef LOGGING_TOVANLOG_H
#define LOGGING_TOVANLOG_H

#include <cstddef>

// The log's back end, for what is too low or too grave for a logger: no verbosity holds these lines back.
extern "C" {

// Writes `length` bytes of `text` as one line; a line feed at its end is dropped.
//
// `severity` counts like a logger's level. `channel` is 0, others are the device's.
// Threads: any. Never throws; without a configured log the line is lost.
void tovanlog_write(int severity, int channel, const char* text, std::size_t length);

// Writes a message, as printf would form it, to the log (severity 2) and to standard error, and aborts the process.
// Messages are cut at 1023 characters.
[[noreturn]] void tovanlog_fatal(const char* format, ...) __attribute__((format(printf, 1, 2)));
}

#endif  // LOGGING_TOVANLOG_H
