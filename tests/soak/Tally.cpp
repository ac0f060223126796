// SPDX-License-Identifier: MIT
#include "soak/Tally.h"

#include <fmt/format.h>

#include <iostream>

#include "soak/Growth.h"

namespace kel::http::soak {
namespace {

constexpr std::size_t most_faults_told = 20;

}  // namespace

void Tally::noteStart() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++starts_;
}

void Tally::noteEnd(const std::string& how) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++ends_[how];
}

void Tally::noteFault(const std::string& what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (++faults_ <= most_faults_told) std::cerr << "fault: " << what << std::endl;
}

std::string Tally::line() const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin_).count();
    const std::lock_guard<std::mutex> lock(mutex_);
    std::string line =
        fmt::format("{:02}:{:02}:{:02}  {} requests ({}/s):", seconds / 3600, seconds / 60 % 60, seconds % 60, starts_,
                    starts_ / static_cast<std::size_t>(seconds > 0 ? seconds : 1));
    for (const auto& [how, count] : ends_) line += fmt::format(" {} {},", how, count);
    line.back() = ';';
    const Usage usage = presentUsage();
    line += fmt::format(" RSS {:.1f} MiB, {} descriptors", usage.resident_bytes / 1048576.0, usage.descriptors);
    if (faults_ != 0) line += fmt::format("; {} FAULTS", faults_);
    return line;
}

std::size_t Tally::starts() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return starts_;
}

std::size_t Tally::faults() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

std::size_t Tally::ends(const std::string& how) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = ends_.find(how);
    return found == ends_.end() ? 0 : found->second;
}

}  // namespace kel::http::soak
