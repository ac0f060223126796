// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

// What stands in bodies and files.
namespace kel::http::soak {

// The first so many bytes of a text without end in which nothing repeats nearby.
inline std::string content(std::size_t size) {
    std::string text;
    for (std::size_t number = 0; text.size() < size; ++number) text.append(std::to_string(number)).append(" ");
    text.resize(size);
    return text;
}

inline const std::string& small() {
    static const auto* const instance = new std::string(content(700));
    return *instance;
}

inline const std::string& large() {
    static const auto* const instance = new std::string(content(150000));
    return *instance;
}

}  // namespace kel::http::soak
