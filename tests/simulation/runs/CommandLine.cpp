// SPDX-License-Identifier: MIT
#include "runs/CommandLine.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace kel::http::simulation {
namespace {

[[noreturn]] void refuse(const std::string& option, const std::string& value, const std::string& wanted) {
    throw std::invalid_argument(option + " takes " + wanted + ", not '" + value + "'");
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() < 20 && text.find_first_not_of("0123456789") == std::string::npos;
}

std::uint64_t numberOf(const std::string& option, const std::string& value) {
    if (!isNumber(value)) refuse(option, value, "a number");
    return std::stoull(value);
}

std::int64_t countOf(const std::string& option, const std::string& value) {
    constexpr std::uint64_t most = 1'000'000'000;
    const std::uint64_t count = numberOf(option, value);
    if (count == 0 || count > most) refuse(option, value, "a number from 1 to " + std::to_string(most));
    return static_cast<std::int64_t>(count);
}

void readRange(CommandLine& line, const std::string& value) {
    const std::size_t dots = value.find("..");
    const std::string first = value.substr(0, dots);
    const std::string last = dots == std::string::npos ? first : value.substr(dots + 2);
    if (!isNumber(first) || !isNumber(last) || std::stoull(first) > std::stoull(last)) {
        refuse("--seeds", value, "a range of seeds (1..2000)");
    }
    line.first = std::stoull(first);
    line.last = std::stoull(last);
}

void readWhat(CommandLine& line, CommandLine::Command command, const std::string& value) {
    if (line.command != CommandLine::Command::help) {
        throw std::invalid_argument("one of --seeds, --replay, --script and --shrink at a time");
    }
    line.command = command;
    if (command == CommandLine::Command::seeds) return readRange(line, value);
    const bool is_seed = command != CommandLine::Command::script && isNumber(value);
    if (command == CommandLine::Command::replay && !is_seed) refuse("--replay", value, "a seed");
    if (is_seed) {
        line.first = std::stoull(value);
    } else {
        line.file = value;
    }
}

void readOption(CommandLine& line, const std::string& option, const std::string& value) {
    using Command = CommandLine::Command;
    if (option == "--seeds") return readWhat(line, Command::seeds, value);
    if (option == "--replay") return readWhat(line, Command::replay, value);
    if (option == "--script") return readWhat(line, Command::script, value);
    if (option == "--shrink") return readWhat(line, Command::shrink, value);
    if (option == "--jobs") {
        line.jobs = countOf(option, value);
    } else if (option == "--patience") {
        line.patience = std::chrono::seconds(countOf(option, value));
    } else if (option == "--tries") {
        line.tries = countOf(option, value);
    } else {
        throw std::invalid_argument("there is no option " + option);
    }
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& words) {
    CommandLine line;
    line.jobs = std::max<std::int64_t>(std::thread::hardware_concurrency(), 1);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--help") return CommandLine();
        if (words[i] == "--states") {
            line.states = true;
            continue;
        }
        if (i + 1 == words.size())
            throw std::invalid_argument(words[i] + " takes something, or there is no such option");
        readOption(line, words[i], words[i + 1]);
        ++i;
    }
    if (line.command == CommandLine::Command::help && !words.empty()) {
        throw std::invalid_argument("one of --seeds, --replay, --script and --shrink is needed");
    }
    return line;
}

}  // namespace kel::http::simulation
