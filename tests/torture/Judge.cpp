// SPDX-License-Identifier: MIT
#include "torture/Judge.h"

#include <algorithm>
#include <sstream>

namespace kel::http::torture {
namespace {

using Findings = std::vector<std::string>;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Where two texts part, in a line that can be printed.
std::string difference(const std::string& expected, const std::string& got) {
    const std::vector<std::string> left = linesOf(expected);
    const std::vector<std::string> right = linesOf(got);
    const std::size_t common = std::min(left.size(), right.size());
    std::size_t line = 0;
    while (line < common && left[line] == right[line]) ++line;
    const auto shown = [line](const std::vector<std::string>& lines) {
        return line < lines.size() ? "'" + lines[line].substr(0, 80) + "'" : std::string("the end");
    };
    return shown(right) + " instead of " + shown(left);
}

std::string withoutLackingLines(const Scenario& scenario, const std::string& text) {
    // libcurl leaves out cookies, without a word, for which it finds no memory or no descriptor.
    if (!scenario.mayLack || !(faults::firedFor(Kind::memory) || faults::failed("fopen"))) return text;
    std::string kept;
    for (const std::string& line : linesOf(text)) {
        if (!scenario.mayLack(line)) kept += line + '\n';
    }
    return kept;
}

bool mayAnswer(const Scenario& scenario, const Outcome& outcome) {
    return scenario.mayAnswer && faults::firedFor(Kind::memory) && scenario.mayAnswer(outcome.text);
}

bool gaveUp(const Scenario& scenario, const Trail& trail) {
    const std::vector<Outcome>& outcomes = trail.transcript.outcomes;
    return !outcomes.empty() && mayAnswer(scenario, outcomes.back());
}

void judgeRequests(const Scenario& scenario, const Trail& reference, const Trail& trail, bool succeeded,
                   Findings& findings) {
    if (trail.requests.size() > reference.requests.size()) findings.emplace_back("the server saw too many requests");
    const std::size_t common = std::min(reference.requests.size(), trail.requests.size());
    for (std::size_t i = 0; i < common; ++i) {
        const std::string expected = withoutLackingLines(scenario, reference.requests[i]);
        const std::string got = withoutLackingLines(scenario, trail.requests[i]);
        if (expected != got) findings.push_back("wrong request: " + difference(expected, got));
    }
    if (succeeded && !gaveUp(scenario, trail) && trail.requests.size() < reference.requests.size()) {
        findings.emplace_back("answered, though the server has not seen all requests");
    }
    const bool refused =
        !trail.transcript.outcomes.empty() && trail.transcript.outcomes.front().how == Outcome::How::refused;
    if (refused && !trail.requests.empty()) findings.emplace_back("sent although start() threw");
    if (!scenario.proxies) return;
    for (const std::string& request : trail.proxy_requests) {
        if (request != reference.proxy_requests.front()) {
            findings.push_back("wrong request for a proxy: " + difference(reference.proxy_requests.front(), request));
        }
    }
    if (trail.connections > trail.proxy_requests.size()) findings.emplace_back("past the proxy");
}

void judgeOutcomes(const Scenario& scenario, const Trail& reference, const Trail& trail, Findings& findings) {
    const std::vector<Outcome>& outcomes = trail.transcript.outcomes;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        if (outcomes[i].how != Outcome::How::response) continue;
        const std::string& expected = reference.transcript.outcomes[i].text;
        if (outcomes[i].text == expected || mayAnswer(scenario, outcomes[i])) continue;
        findings.push_back("wrong answer: " + difference(expected, outcomes[i].text));
    }
}

// What can not be closed or renamed stays, as documented, and so does what can not be looked at or removed.
bool mayBeLeft() {
    for (const char* call : {"close", "rename", "unlink", "stat", "lstat", "fstatat", "statx"}) {
        if (faults::failed(call)) return true;
    }
    return false;
}

std::string kindOfName(const std::string& name) {
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0) return "*.tmp";
    return name.substr(0, name.size() < 9 ? 0 : name.size() - 8) + "*";
}

void judgeFiles(const Scenario& scenario, const Trail& reference, const Trail& trail, bool succeeded,
                Findings& findings) {
    for (const auto& [name, bytes] : reference.files) {
        if (trail.files.count(name) == 0) findings.push_back("a file is missing: " + name);
    }
    for (const auto& [name, bytes] : trail.files) {
        if (reference.files.count(name) == 0 && mayBeLeft()) continue;
        const auto before = scenario.files.find(name);
        const bool untouched =
            !scenario.mayStand && reference.files.count(name) != 0 && reference.files.at(name) == bytes;
        if (untouched || (scenario.mayStand && scenario.mayStand(name, bytes, succeeded))) continue;
        const bool known = reference.files.count(name) != 0;
        const std::string what =
            known ? name + " (" + std::to_string(bytes.size()) + " bytes" +
                        (before != scenario.files.end() && before->second == bytes ? ", the old ones)" : ")")
                  : kindOfName(name);
        findings.push_back((known ? "wrong file: " : "a file is left: ") + what);
    }
}

}  // namespace

std::vector<std::string> judge(const Scenario& scenario, const Trail& reference, const Trail& trail) {
    Findings findings = trail.transcript.findings;
    if (trail.transcript.stuck) return findings;
    const bool succeeded = trail.transcript.succeeded(reference.transcript.outcomes.size());
    judgeRequests(scenario, reference, trail, succeeded, findings);
    judgeOutcomes(scenario, reference, trail, findings);
    judgeFiles(scenario, reference, trail, succeeded, findings);
    for (const std::string& descriptor : trail.descriptors) {
        const std::string target = descriptor.substr(descriptor.find(' ') + 1);
        findings.push_back("a descriptor is left: " + target.substr(0, target.find('[')));
    }
    if (trail.input_bytes != reference.input_bytes) findings.emplace_back("standard input was read");
    if (!trail.transcript.engine && !trail.requests.empty()) findings.emplace_back("sent without an engine");
    return findings;
}

}  // namespace kel::http::torture
