// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <syslog.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "ko/host.h"
#include "log_text.h"

namespace ko {
namespace host {
namespace {

// For the system's log, which sorts lines by it. Nothing is written by these names: "error" would stand in front of what is
// always written, on level 1, and is no error most of the time.
spdlog::level::level_enum severity(int level) {
    if (level >= 8) return spdlog::level::trace;
    if (level >= 4) return spdlog::level::debug;
    if (level == 3) return spdlog::level::info;
    if (level == 2) return spdlog::level::warn;
    return spdlog::level::err;
}

spdlog::string_view_t view(std::string_view text) {
    return {text.data(), text.size()};
}

std::string logger_of(const LogLine& line) {
    return fmt::format("[{}]", line.logger);
}

std::string logger_and_level_of(const LogLine& line) {
    return fmt::format("[{}] [{}]", line.logger, line.level);
}

// Flushed line by line: a log is read most often after the process has died. Its texts are in part what strangers sent;
// none of them may pass for a line of its own, or command the terminal on which the log is read.
LogSink write_to(std::shared_ptr<spdlog::sinks::sink> sink, const char* pattern,
                 std::string (*heading_of)(const LogLine&)) {
    sink->set_pattern(pattern);
    return [sink = std::move(sink), heading_of](const LogLine& line) {
        const std::string heading = heading_of(line);
        std::string escaped;
        const std::string_view text = logging::printable(line.text, escaped);
        sink->log(spdlog::details::log_msg(view(heading), severity(line.level), view(text)));
        sink->flush();
    };
}

LogSink write_with_time_to(std::shared_ptr<spdlog::sinks::sink> sink) {
    return write_to(std::move(sink), "%Y-%m-%d %H:%M:%S.%e %n %v", &logger_and_level_of);
}

}  // namespace

LogSink log_to_stderr() {
    return write_with_time_to(std::make_shared<spdlog::sinks::stderr_sink_st>());
}

LogSink log_to_file(const std::string& path) {
    try {
        return write_with_time_to(std::make_shared<spdlog::sinks::basic_file_sink_st>(path));
    } catch (const spdlog::spdlog_ex& error) {
        throw std::runtime_error(error.what());
    }
}

LogSink log_to_syslog(const std::string& identity) {
    constexpr bool formatted = true;
    return write_to(std::make_shared<spdlog::sinks::syslog_sink_st>(identity, LOG_PID, LOG_USER, formatted), "%n %v",
                    &logger_of);
}

}  // namespace host
}  // namespace ko
