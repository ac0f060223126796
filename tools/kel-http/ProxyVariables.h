// SPDX-License-Identifier: MIT
#pragma once

#include <array>

namespace kel::http::tool {

// The variables of the environment that libcurl follows to a proxy.
constexpr std::array<const char*, 6> proxy_variables = {"http_proxy",  "HTTP_PROXY", "https_proxy",
                                                        "HTTPS_PROXY", "all_proxy",  "ALL_PROXY"};

// Threads: before there is a second one.
void clear_proxy_variables();

}  // namespace kel::http::tool
