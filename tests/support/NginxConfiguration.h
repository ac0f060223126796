// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::test {

// What differs from one nginx of the tests to the next.
struct NginxSettings {
    std::string directory;
    std::string authority;      // "127.0.0.1:4711"
    std::string tls_authority;  // empty without TLS
    bool http2 = false;         // over TLS
    std::string certificate_file;
    std::string key_file;
    std::string directives;
};

// The names used in nginx's folder.
namespace nginx_files {
constexpr const char* Configuration = "nginx.conf";
constexpr const char* AccessLog = "access.log";
constexpr const char* ErrorLog = "error.log";
constexpr const char* Passwords = "passwords";
constexpr const char* Served = "served";
constexpr const char* Posted = "posted";
}  // namespace nginx_files

std::string nginxConfiguration(const NginxSettings& settings);

}  // namespace kel::http::test
