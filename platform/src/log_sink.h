// SPDX-License-Identifier: MIT
#ifndef KO_LOG_SINK_H
#define KO_LOG_SINK_H

#include <map>
#include <string>

#include "ko/host.h"

// The way from the loggers and the back end to the one sink of the process, and the knobs that the host turns.
namespace logging {

// Any thread. Never throws; what a sink writes while it handles a line is dropped.
void send_to_sink(const ko::host::LogLine& line) noexcept;

void set_sink(ko::host::LogSink sink);

// For loggers that exist and for those to come.
void set_verbosities(int level, const std::map<std::string, int>& levels);

}  // namespace logging

#endif  // KO_LOG_SINK_H
