// SPDX-License-Identifier: MIT
#include "soak/Growth.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace kel::http::soak {
namespace {

// A few samples say nothing.
constexpr std::size_t least_samples = 6;
constexpr double memory_room = 1024.0 * 1024;
constexpr std::size_t descriptor_room = 8;

template <typename Figure>
std::string compare(const std::vector<Usage>& samples, Figure Usage::*figure, Figure room, const char* name) {
    const auto less = [figure](const Usage& a, const Usage& b) { return a.*figure < b.*figure; };
    const auto third = static_cast<std::ptrdiff_t>(samples.size() / 3);
    const auto last = samples.end() - third;
    const Figure before = *std::max_element(last - third, last, less).*figure;
    const Figure after = *std::min_element(last, samples.end(), less).*figure;
    if (after <= before + room) return {};
    return fmt::format("{} have grown from {} at most to {} at least\n", name, before, after);
}

}  // namespace

Usage presentUsage() {
    Usage usage;
    std::ifstream statm("/proc/self/statm");
    long total = 0;
    long resident = 0;
    statm >> total >> resident;
    usage.resident_bytes = static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
    const std::filesystem::directory_iterator all("/proc/self/fd");
    usage.descriptors = static_cast<std::size_t>(std::distance(begin(all), end(all)));
    return usage;
}

std::string Growth::verdict(bool memory_counts) const {
    if (samples_.size() < least_samples) return {};
    std::string grown = compare(samples_, &Usage::descriptors, descriptor_room, "descriptors");
    if (memory_counts) grown += compare(samples_, &Usage::resident_bytes, memory_room, "resident bytes");
    return grown;
}

}  // namespace kel::http::soak
