// SPDX-License-Identifier: MIT
#include "torture/Findings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <sstream>

namespace kel::http::torture {
namespace {

constexpr std::size_t most_frames = 7;
constexpr std::size_t most_places = 6;

// "path(symbol+0x12) [0x34]": the parts of a line of backtrace_symbols_fd().
struct Frame {
    std::string path;
    std::string symbol;
    std::string offset;
};

Frame split(const std::string& line) {
    const std::size_t open = line.find('(');
    const std::size_t close = line.find(')', open);
    if (open == std::string::npos || close == std::string::npos) return {line, {}, {}};
    const std::string inner = line.substr(open + 1, close - open - 1);
    const std::size_t plus = inner.find('+');
    return {line.substr(0, open), inner.substr(0, plus), plus == std::string::npos ? "" : inner.substr(plus + 1)};
}

std::string outputOf(const std::string& command) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    std::string output;
    std::array<char, 512> part{};
    while (pipe && std::fgets(part.data(), part.size(), pipe.get()) != nullptr) output += part.data();
    return output.substr(0, output.find('\n'));
}

// The function's name where a tool for it is at hand, else the line as it is.
std::string named(const std::string& line) {
    static auto* const known = new std::map<std::string, std::string>;
    const Frame frame = split(line);
    const auto [entry, is_new] = known->try_emplace(frame.path + frame.symbol + '+' + frame.offset);
    if (!is_new) return entry->second;
    const std::string file = frame.path.substr(frame.path.rfind('/') + 1);
    if (frame.symbol.empty() && !frame.offset.empty()) {
        const std::string found = outputOf("addr2line -Cfpse '" + frame.path + "' " + frame.offset + " 2>&1");
        entry->second = found.find("??") != std::string::npos || found.empty() ? file : found;
    } else {
        // Functions of this program are the library's, or interposed ones.
        const std::string name = outputOf("c++filt -p '" + frame.symbol + "' 2>&1");
        const bool own = file == "torture_process" && name.find("kel::http::") == 0;
        entry->second = own ? name : name + " (" + file + ')';
    }
    return entry->second;
}

bool saysLittle(const std::string& frame) {
    static const std::vector<std::string> parts = {
        "torture::",   "torture_process", "kel_",         "std::",          "Failing",     "Faults.cpp",
        "tellOfDeath", "ko_thread_main",  "libc.so",      "libstdc++",      "libgcc_s",    "_start",
        "vdso",        "clone3",          "start_thread", "__pthread_kill", "__restore_rt"};
    return std::any_of(parts.begin(), parts.end(),
                       [&](const std::string& part) { return frame.find(part) != std::string::npos; });
}

// The library's own functions and the exported ones of others, outwards, without what stands between any two functions.
std::string chainOf(const std::vector<std::string>& frames) {
    std::string chain;
    std::string last;
    std::size_t shown = 0;
    for (const std::string& line : frames) {
        const std::string frame = named(line);
        if (saysLittle(frame) || frame == last) continue;
        if (++shown > most_frames) break;
        chain += (shown == 1 ? "" : " <- ") + frame;
        last = frame;
    }
    return chain;
}

// The same, with other libraries by their files alone and without what the engine's loop always does: what is left is the
// same for calls that have the same cause.
std::string kindOf(const std::vector<std::string>& frames) {
    std::string kind;
    std::string last;
    for (const std::string& line : frames) {
        std::string frame = named(line);
        if (saysLittle(frame) || frame.find("::thread_loop") != std::string::npos) continue;
        const std::size_t file = frame.rfind('(');
        if (frame.find(".so", file) != std::string::npos) frame = frame.substr(file + 1, frame.size() - file - 2);
        if (frame == last) continue;
        kind += (kind.empty() ? "" : " <- ") + frame;
        last = frame;
    }
    return kind;
}

std::string causeOf(const Finding& finding) {
    const std::string call = finding.site.substr(0, finding.site.find(','));
    const bool numbered = call.find("curl_easy") == 0;
    std::string cause = finding.what + "\n    ";
    cause += finding.where.empty()
                 ? (numbered ? call : call.substr(0, call.find('('))) + " <- " + kindOf(finding.frames)
                 : kindOf(finding.where);
    for (const std::string& word : finding.words) cause += "\n    said: " + word;
    return cause;
}

std::string placeOf(const Finding& finding) {
    return finding.scenario + ", " + finding.course + ", call " + std::to_string(finding.call) + ": " + finding.site +
           " <- " + chainOf(finding.frames);
}

}  // namespace

std::string table(const std::vector<Finding>& findings) {
    std::map<std::string, std::vector<std::string>> places;
    std::map<std::string, std::vector<std::string>> stacks;
    for (const Finding& finding : findings) {
        const std::string cause = causeOf(finding);
        places[cause].push_back(placeOf(finding));
        stacks.emplace(cause, finding.stacks);
    }
    std::ostringstream text;
    text << findings.size() << " findings of " << places.size() << " kinds\n";
    for (const auto& [cause, where] : places) {
        text << "- " << cause << "\n    " << where.size() << " times\n";
        for (std::size_t i = 0; i < std::min(where.size(), most_places); ++i) text << "      " << where[i] << '\n';
        for (const std::string& line : stacks[cause]) text << "        " << line << '\n';
    }
    return text.str();
}

}  // namespace kel::http::torture
