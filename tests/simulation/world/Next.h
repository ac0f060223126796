// SPDX-License-Identifier: MIT
#pragma once

#include <dlfcn.h>

namespace kel::http::simulation {

// The function of this name that the world's own hides.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace kel::http::simulation
