// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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

// A part of a request's form, and the file that a download replaces or that is none of its parts.
inline std::string partBody(std::int64_t request, std::int64_t part) {
    return contents(-100'000 - request * 100 - part, (request * 37 + part * 501) % 2000);
}
inline std::string oldFile(std::int64_t request, std::int64_t size) {
    return contents(-200'000 - request, size);
}

// Tells contents apart by 16 digits.
inline std::uint64_t fingerprint(std::string_view text, std::uint64_t begin = 14695981039346656037U) {
    for (const char c : text) begin = (begin ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return begin;
}

}  // namespace kel::http::simulation
