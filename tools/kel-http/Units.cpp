// SPDX-License-Identifier: MIT
#include "Units.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace kel::http::tool {
namespace {

struct Quantity {
    double number;
    std::string_view unit;
};

std::optional<Quantity> split(std::string_view text) {
    // Digits first: the conversion would take a sign, "inf" and "nan" as well.
    if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (error != std::errc()) return std::nullopt;
    return Quantity{number, std::string_view(rest, static_cast<std::size_t>(end - rest))};
}

std::optional<double> milliseconds_in(std::string_view unit) {
    if (unit == "ms") return 1;
    if (unit == "s" || unit.empty()) return 1000;
    if (unit == "m") return 60'000;
    return std::nullopt;
}

std::optional<double> bytes_in(std::string_view unit) {
    if (unit.empty()) return 1;
    if (unit == "K" || unit == "k") return 1024;
    if (unit == "M") return 1024 * 1024;
    if (unit == "G") return 1024 * 1024 * 1024;
    return std::nullopt;
}

}  // namespace

std::optional<std::chrono::milliseconds> parse_duration(std::string_view text) {
    constexpr double year = 365.0 * 24 * 3600 * 1000;
    const auto quantity = split(text);
    if (!quantity) return std::nullopt;
    const auto unit = milliseconds_in(quantity->unit);
    if (!unit) return std::nullopt;
    // Rounded up, because 0 would mean no limit at all.
    const double milliseconds = std::ceil(quantity->number * *unit);
    if (milliseconds > year) return std::nullopt;
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(milliseconds));
}

std::optional<std::uint32_t> parse_bytes(std::string_view text) {
    const auto quantity = split(text);
    if (!quantity) return std::nullopt;
    const auto unit = bytes_in(quantity->unit);
    if (!unit) return std::nullopt;
    const double bytes = std::floor(quantity->number * *unit);
    if (bytes > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return static_cast<std::uint32_t>(bytes);
}

}  // namespace kel::http::tool
