// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kel::http::simulation {

// Contents that tell each byte's place: a gap, a repetition or a swap shows. `of` tells one body from another.
inline std::string contents(std::int64_t of, std::int64_t size) {
    std::string text;
    text.reserve(static_cast<std::size_t>(size) + 16);
    while (static_cast<std::int64_t>(text.size()) < size) {
        text += std::to_string(of) + ':' + std::to_string(text.size()) + ' ';
    }
    text.resize(static_cast<std::size_t>(size));
    return text;
}

// The body of the so many-th answer of an exchange, and that of a request.
inline std::string answerBody(std::int64_t exchange, std::size_t arrival, std::int64_t size) {
    return contents(exchange * 100 + static_cast<std::int64_t>(arrival), size);
}
inline std::string requestBody(std::int64_t request, std::int64_t size) {
    return contents(-1 - request, size);
}

}  // namespace kel::http::simulation
