// SPDX-License-Identifier: MIT
#include "ProxyVariables.h"

#include <cstdlib>

namespace kel::http::tool {

void clear_proxy_variables() {
    for (const char* const variable : proxy_variables) unsetenv(variable);
}

}  // namespace kel::http::tool
