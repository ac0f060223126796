// SPDX-License-Identifier: MIT
#include "LogListener.h"

#include <algorithm>
#include <array>

#include "Files.h"
#include "LineParts.h"

namespace kel::http::tool {
namespace {

constexpr int errors = 1;
constexpr int headers = 4;
constexpr int steps_of_engine = 8;

int printed_level(const Options& options) {
    constexpr std::array<int, 5> levels = {0, errors, headers, steps_of_engine, 9};
    return levels[std::min<std::size_t>(static_cast<std::size_t>(options.verbosity), levels.size() - 1)];
}

}  // namespace

LogListener::LogListener(const Options& options) : secrets_(options), printed_level_(printed_level(options)) {}

int LogListener::level_of_library(const Options& options) {
    return std::max(printed_level(options), errors);
}

int LogListener::level_of_engine(const Options& options) {
    const int quiet = options.download.targets.empty() ? errors : headers;
    return options.verbosity == 0 ? quiet : std::max(printed_level(options), steps_of_engine);
}

void LogListener::hear(const ko::host::LogLine& line) {
    if (line.level <= printed_level_) print_({line.logger, line.level, secrets_.conceal(line.text)});
    if (line.logger != "HttpClient") return;
    transfers_.hear(line.text);
    if (printed_level_ > 0) proxies_.try_emplace(request_id_of(line.text), &tell).first->second.hear(line.text);
}

}  // namespace kel::http::tool
