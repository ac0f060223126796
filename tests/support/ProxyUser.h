// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::test {

// Somebody whom a proxy knows.
struct ProxyUser {
    std::string name;
    std::string password;
};

}  // namespace kel::http::test
