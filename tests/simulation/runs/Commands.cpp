// SPDX-License-Identifier: MIT
#include "runs/Commands.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "runs/Progress.h"
#include "runs/Seeds.h"
#include "runs/Shrinker.h"

namespace kel::http::simulation {
namespace {

std::string read(const std::string& file) {
    if (file == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error("'" + file + "' can not be read");
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string scriptOf(const CommandLine& line) {
    return line.file.empty() ? print(generate(line.first)) : read(line.file);
}

void tellFinding(const Finding& finding) {
    for (const std::string& fault : finding.faults) {
        std::printf("seed %llu: %s\n", static_cast<unsigned long long>(finding.seed), fault.c_str());
    }
    std::fputs(finding.errors.c_str(), stdout);
    std::printf("    tools/simulate --replay %llu\n", static_cast<unsigned long long>(finding.seed));
    std::fflush(stdout);
}

int tellStates(const Tally& tally) {
    const std::vector<std::string> missing = missingStates(tally.states);
    for (const std::string& state : missing) std::printf("never reached: %s\n", state.c_str());
    return missing.empty() ? 0 : 1;
}

int liveRange(const CommandLine& line) {
    warmUp();
    Progress progress;
    SeedRun run;
    run.first = line.first;
    run.last = line.last;
    run.live = liveSeed;
    run.jobs = line.jobs;
    run.patience = line.patience;
    run.enough = [&progress](const Tally& tally) {
        progress.tell(tally);
        return false;
    };
    run.onFinding = [&progress](const Finding& finding) {
        progress.clear();
        tellFinding(finding);
    };
    const Tally tally = liveSeeds(run);
    progress.clear();
    std::printf("%s, %zu findings, %llu events, hash %016llx\n", summaryOf(tally).c_str(), tally.findings.size(),
                static_cast<unsigned long long>(tally.events), static_cast<unsigned long long>(tally.hash));
    const int status = line.states ? tellStates(tally) : 0;
    return tally.findings.empty() ? status : 1;
}

// In this process, so that a debugger sees it, too.
int tell(const CommandLine& line) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // a world that brings the process down has told all by then
    const Script script = parse(scriptOf(line));
    std::fputs(print(script).c_str(), stdout);
    warmUp();
    const Verdict verdict = judge(script, stdout);
    for (const std::string& state : verdict.states) std::printf("reached: %s\n", state.c_str());
    for (const std::string& fault : verdict.faults) std::printf("FAULT: %s\n", fault.c_str());
    std::printf("hash %016llx, %llu events\n", static_cast<unsigned long long>(verdict.hash),
                static_cast<unsigned long long>(verdict.events));
    return verdict.faults.empty() ? 0 : 1;
}

bool failsLike(const std::string& kind, const std::string& text, std::chrono::seconds patience) {
    try {
        const Finding finding = liveAlone(parse(text), patience);
        for (const std::string& fault : finding.faults) {
            if (kindOf(fault) == kind) return true;
        }
    } catch (const std::invalid_argument&) {
        return false;  // a value that a field does not take
    }
    return false;
}

int shrink(const CommandLine& line) {
    warmUp();
    const std::string whole = scriptOf(line);
    const Finding finding = liveAlone(parse(whole), line.patience);
    if (finding.faults.empty()) throw std::runtime_error("this world breaks no promise: there is nothing to shrink");
    const std::string kind = kindOf(finding.faults.front());
    std::fprintf(stderr, "%s\n", finding.faults.front().c_str());
    Shrinker shrinker([&](const std::string& text) { return failsLike(kind, text, line.patience); }, line.tries);
    const std::string text = shrinker.shrink(whole);
    if (shrinker.triesLeft() == 0) std::fputs("No tries are left; it may still go smaller (--tries).\n", stderr);
    const Finding left = liveAlone(parse(text), line.patience);
    std::printf("%s\n", testOf(text, left.faults.empty() ? finding.faults.front() : left.faults.front()).c_str());
    std::printf("tools/simulate --script - <<'END'\n%sEND\n", text.c_str());
    return 1;
}

}  // namespace

int execute(const CommandLine& line) {
    using Command = CommandLine::Command;
    switch (line.command) {
        case Command::help:
            std::fputs(usage, stdout);
            return 0;
        case Command::seeds:
            return liveRange(line);
        case Command::replay:
        case Command::script:
            return tell(line);
        case Command::shrink:
            return shrink(line);
    }
    return 2;
}

}  // namespace kel::http::simulation
