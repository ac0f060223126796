// SPDX-License-Identifier: MIT
#include "world/Trace.h"

namespace kel::http::simulation {

// FNV-1a: each byte counts, and its place.
std::uint64_t Trace::mixed(std::uint64_t hash, std::string_view text) {
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return hash;
}

void Trace::endAnyOrder() {
    is_in_order_ = true;
    hash_ = mixed(hash_, {reinterpret_cast<const char*>(&sum_), sizeof sum_});
    sum_ = 0;
}

void Trace::note(Time now, std::string_view party, std::string_view event) {
    ++events_;
    const std::int64_t time = now.count();
    const std::string_view bytes(reinterpret_cast<const char*>(&time), sizeof time);
    const std::uint64_t hash = mixed(mixed(mixed(is_in_order_ ? hash_ : beginning, bytes), party), event);
    (is_in_order_ ? hash_ : sum_) = is_in_order_ ? hash : sum_ + hash;
    if (reader_ == nullptr) return;
    std::fprintf(reader_, "%12.6f s  %-10.*s %.*s\n", static_cast<double>(time - Beginning.count()) / 1e6,
                 static_cast<int>(party.size()), party.data(), static_cast<int>(event.size()), event.data());
}

}  // namespace kel::http::simulation
