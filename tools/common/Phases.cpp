// SPDX-License-Identifier: MIT
#include "common/Phases.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kel::http::tool {

Phases phases_of(const TimingData& timing) {
    struct Step {
        std::string_view name;
        std::int64_t end;  // microseconds
    };
    // The look-up alone comes in milliseconds.
    const std::array<Step, 6> steps = {{{"look-up", timing.namelookup * 1000},
                                        {"connect", timing.connect},
                                        {"TLS", timing.appconnect},
                                        {"send", timing.pretransfer},
                                        {"wait", timing.starttransfer},
                                        {"receive", timing.total}}};
    Phases phases{};
    std::int64_t begin = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        // A step that did not happen is told as 0, which is before the one that preceded it.
        const std::int64_t end = std::max(begin, steps[i].end);
        phases[i] = {steps[i].name, std::chrono::microseconds(begin), std::chrono::microseconds(end - begin)};
        begin = end;
    }
    return phases;
}

double milliseconds_of(std::chrono::microseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace kel::http::tool
