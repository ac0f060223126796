// SPDX-License-Identifier: MIT
#pragma once

#include <dlfcn.h>

namespace kel::http::torture {

// The function of this name that an interposed one hides.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace kel::http::torture
