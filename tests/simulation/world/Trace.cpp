// SPDX-License-Identifier: MIT
#include "world/Trace.h"

namespace kel::http::simulation {

// FNV-1a: each byte counts, and its place.
void Trace::mix(std::string_view text) {
    for (const char c : text) hash_ = (hash_ ^ static_cast<unsigned char>(c)) * 1099511628211U;
}

void Trace::note(Time now, std::string_view party, std::string_view event) {
    ++events_;
    const std::int64_t time = now.count();
    mix({reinterpret_cast<const char*>(&time), sizeof time});
    mix(party);
    mix(event);
    if (reader_ == nullptr) return;
    std::fprintf(reader_, "%12.6f s  %-10.*s %.*s\n", static_cast<double>(time - Beginning.count()) / 1e6,
                 static_cast<int>(party.size()), party.data(), static_cast<int>(event.size()), event.data());
}

}  // namespace kel::http::simulation
