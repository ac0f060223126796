// SPDX-License-Identifier: MIT
#ifndef LOGGING_LOGGER_H
#define LOGGING_LOGGER_H

#include <atomic>
#include <string>
#include <string_view>

namespace logging {

// A named source of log lines, with a verbosity of its own.
//
// Levels: 0 silent, 1 errors, 2 warnings, 3 information, 4 debug, 8 detail, 9 payload; those between count as the one
// below. Formatting is the caller's work, and is best done after a look at verbosity().
// Threads: any, for every operation.
class Logger {
 public:
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // The highest level that is written. Cheap enough to be asked before each line.
    int verbosity() const noexcept { return verbosity_.load(std::memory_order_relaxed); }
    // Holds until the next call, or until the host configures itself anew.
    void set_verbosity(int level) noexcept { verbosity_.store(level, std::memory_order_relaxed); }

    // As getLogger() was asked for it.
    const std::string& name() const noexcept { return name_; }

    // Writes one line, given without a line feed at its end, unless `level` is above verbosity().
    //
    // Returns when the line has been handed over. Nothing of `text` is kept. Never throws.
    void write(int level, std::string_view text) noexcept;

 private:
    friend Logger* getLogger(const char* name, int group);

    Logger(const char* name, int verbosity) : name_(name), verbosity_(verbosity) {}

    const std::string name_;
    std::atomic<int> verbosity_;
};

// The logger of this name in this group (0 is the group of ordinary loggers): made when first asked for, the same one
// ever after.
//
// Ownership: the logging service's, for ever. It is not destroyed at the end of the process either, so that objects
//            with static storage can log from their destructors.
// Threads:   any. Never null.
Logger* getLogger(const char* name, int group);

}  // namespace logging

#endif  // LOGGING_LOGGER_H
