// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::test {

// Somebody whom a proxy knows.
struct ProxyUser {
    std::string name;
    std::string password;
};

// Name and password as basic authentication sends them: what stands behind "Basic ".
std::string basicCredentials(const ProxyUser& user);

}  // namespace kel::http::test
