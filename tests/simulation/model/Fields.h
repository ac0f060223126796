// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

namespace kel::http::simulation {

using Names = std::set<std::string_view>;

// Whether the fields of a script's record have their defaults, but those of these names. A field that is new is no exception,
// so that whoever names those that he knows says nothing about worlds with others.
template <typename Record>
bool isUsualBut(const Names& names, Record record) {
    Record usual;
    std::vector<std::int64_t> defaults;
    usual.visit([&](std::string_view, auto& value) { defaults.push_back(static_cast<std::int64_t>(value)); });
    bool is_usual = true;
    std::size_t field = 0;
    record.visit([&](std::string_view name, auto& value) {
        if (static_cast<std::int64_t>(value) != defaults[field++] && names.count(name) == 0) is_usual = false;
    });
    return is_usual;
}

}  // namespace kel::http::simulation
