// SPDX-License-Identifier: MIT
#pragma once

// Stands in for the tl-optional library where the system has none. Only what std::optional also offers may be used:
// no map(), no and_then(), no references.

#include <optional>

namespace tl {

// A value that may be missing.
template <class T>
using optional = std::optional<T>;
using std::in_place;
using std::make_optional;
using std::nullopt;
using std::nullopt_t;

}  // namespace tl
