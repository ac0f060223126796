// SPDX-License-Identifier: MIT
#include "Environment.h"

#include <cstdlib>
#include <initializer_list>

namespace kel::http::test {

void clearProxyEnvironment() {
    for (const char* name : {"http_proxy", "https_proxy", "ftp_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                             "HTTPS_PROXY", "FTP_PROXY", "ALL_PROXY", "NO_PROXY"}) {
        unsetenv(name);
    }
}

}  // namespace kel::http::test
