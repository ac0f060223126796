// SPDX-License-Identifier: MIT
#include "common/ProgressBar.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "common/TerminalText.h"

namespace kel::http::tool {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr auto window = seconds(5);
constexpr auto sample_interval = milliseconds(100);
// Over less time a rate says more about the buffers on the way than about the network.
constexpr auto shortest_span = milliseconds(200);
constexpr std::size_t least_name = 6;
constexpr std::size_t least_bar = 8;

double seconds_of(ProgressBar::Clock::result_type::duration span) {
    return std::chrono::duration<double>(span).count();
}

// Names differ at their ends more than at their beginnings.
std::string fitted(std::string_view name, std::size_t width) {
    const std::string shown =
        columns_of(name) <= width ? std::string(name) : fmt::format("..{}", last_columns(name, width - 2));
    return shown + std::string(width - columns_of(shown), ' ');
}

}  // namespace

std::string bytes_text(std::uint64_t bytes) {
    constexpr std::array<const char*, 6> units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1000) return fmt::format("{} B", bytes);
    double amount = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; amount >= 999.5; ++unit) amount /= 1024;
    const int decimals = amount < 9.995 ? 2 : amount < 99.95 ? 1 : 0;
    return fmt::format("{:.{}f} {}", amount, decimals, units[unit]);
}

std::string duration_text(seconds duration) {
    const auto count = duration.count();
    if (count < 3600) return fmt::format("{}:{:02}", count / 60, count % 60);
    if (count < 100 * 3600) return fmt::format("{}h{:02}m", count / 3600, count % 3600 / 60);
    return fmt::format("{}d", count / 86400);
}

ProgressBar::ProgressBar(const std::string& name, Clock clock)
    : name_(printable(name)), clock_(std::move(clock)), start_(clock_()) {}

void ProgressBar::update(std::uint64_t received, std::uint64_t total) {
    const TimePoint now = clock_();
    // A transfer that begins anew says nothing about the rate before.
    if (received < received_) samples_.clear();
    if (samples_.empty()) first_received_ = received;
    received_ = received;
    total_ = total;
    if (samples_.empty() || now - samples_.back().time >= sample_interval) samples_.push_back({now, received});
    while (samples_.size() > 1 && samples_[1].time <= now - window) samples_.pop_front();
}

std::optional<double> ProgressBar::rate() const {
    if (samples_.empty()) return std::nullopt;
    const TimePoint now = clock_();
    const auto too_old = [now](const Sample& sample) { return sample.time <= now - window; };
    auto base = std::find_if_not(samples_.begin(), samples_.end(), too_old);
    if (base != samples_.begin()) --base;
    const auto span = now - base->time;
    if (span < shortest_span) return std::nullopt;
    return static_cast<double>(received_ - base->received) / seconds_of(span);
}

std::optional<seconds> ProgressBar::time_left() const {
    constexpr double longest = 999.0 * 86400;
    const auto bytes_per_second = rate();
    if (total_ == 0 || received_ >= total_ || !bytes_per_second) return std::nullopt;
    const double left = static_cast<double>(total_ - received_);
    if (left > longest * *bytes_per_second) return std::nullopt;
    return seconds(static_cast<seconds::rep>(left / *bytes_per_second + 0.5));
}

std::string ProgressBar::percentage() const {
    if (total_ == 0) return {};
    const double part = static_cast<double>(std::min(received_, total_)) / static_cast<double>(total_);
    // Rounded down: 100 is for what is complete.
    return fmt::format("{}%", static_cast<int>(part * 100));
}

std::string ProgressBar::rate_text() const {
    const auto bytes_per_second = rate();
    return bytes_per_second ? bytes_text(static_cast<std::uint64_t>(*bytes_per_second)) + "/s" : "";
}

std::string ProgressBar::time_left_text() const {
    const auto left = time_left();
    return left ? duration_text(*left) + " left" : "";
}

std::string ProgressBar::bar(std::size_t width) const {
    const std::size_t room = width - 2;
    const double part = static_cast<double>(std::min(received_, total_)) / static_cast<double>(total_);
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(room));
    const bool has_tip = filled > 0 && filled < room;
    return fmt::format("[{}{}{}]", std::string(has_tip ? filled - 1 : filled, '='), has_tip ? ">" : "",
                       std::string(room - filled, ' '));
}

std::string ProgressBar::line(std::size_t width) const {
    std::vector<std::string> parts;
    if (total_ != 0) parts.push_back(fmt::format("{:>4}", percentage()));
    parts.push_back(total_ == 0 ? fmt::format("{:>8}", bytes_text(received_))
                                : fmt::format("{:>8}/{:<8}", bytes_text(received_), bytes_text(total_)));
    parts.push_back(fmt::format("{:>10}", rate_text()));
    if (total_ != 0) parts.push_back(fmt::format("{:>11}", time_left_text()));

    const std::size_t name_width = width / 4 < least_name ? 0 : width / 4;
    std::size_t room = width - name_width;
    std::string line = name_width == 0 ? "" : fitted(name_, name_width);
    std::size_t used = 0;
    std::size_t shown = 0;
    for (; shown < parts.size() && used + parts[shown].size() + 1 <= room; ++shown) used += parts[shown].size() + 1;
    room -= used;
    for (std::size_t i = 0; i < shown; ++i) {
        line += (line.empty() ? "" : " ") + parts[i];
        if (i == 0 && total_ != 0 && room > least_bar) line += ' ' + bar(room - 1);
    }
    return line;
}

std::string ProgressBar::text() const {
    std::string text = fmt::format("{}: {}", name_, total_ == 0 ? bytes_text(received_) : percentage());
    if (total_ != 0) text += " of " + bytes_text(total_);
    for (const std::string& part : {rate_text(), time_left_text()}) {
        if (!part.empty()) text += ", " + part;
    }
    return text;
}

std::string ProgressBar::summary() const {
    const auto span = clock_() - start_;
    std::string text =
        fmt::format("{}: {} in {}", name_, bytes_text(received_), duration_text(duration_cast<seconds>(span)));
    const double average = static_cast<double>(received_ - first_received_) / seconds_of(span);
    return span < shortest_span ? text : fmt::format("{}, {}/s", text, bytes_text(static_cast<std::uint64_t>(average)));
}

}  // namespace kel::http::tool
