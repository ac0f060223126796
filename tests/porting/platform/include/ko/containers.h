// SPDX-License-Identifier: MIT
#pragma once

#include <strings.h>

#include <cctype>
#include <cstddef>
#include <string>

namespace ko::containers {

struct lc_hash {
    std::size_t operator()(const std::string& text) const {
        std::size_t hash = 0;
        for (const char c : text)
            hash = hash * 31 + static_cast<std::size_t>(std::tolower(static_cast<unsigned char>(c)));
        return hash;
    }
};

struct lc_equals {
    bool operator()(const std::string& left, const std::string& right) const {
        return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
    }
};

}  // namespace ko::containers
