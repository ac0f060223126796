// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

#define KO_ASSERT(expression) \
    ((expression) ? static_cast<void>(0) : (std::fputs("Assertion '" #expression "' failed.\n", stderr), std::abort()))
