// SPDX-License-Identifier: MIT
#include "kel-http/curl/TlsProxy.h"

#include <unistd.h>

#include <string_view>

#include "kel-http/model/AsciiCase.h"

namespace kel::http {
namespace {

bool isTlsProxy(std::string_view proxy) {
    return startsWithIgnoringCase(proxy, "https:");
}

// Each request asks about all variables.
bool mayNameProxy(const char* variable) {
    return *variable == 'h' || *variable == 'H' || *variable == 'a' || *variable == 'A';
}

// "https_proxy=https://proxy:443", "ALL_PROXY=..."
bool namesTlsProxy(std::string_view variable) {
    for (const std::string_view name : {"https_proxy=", "http_proxy=", "all_proxy="}) {
        if (startsWithIgnoringCase(variable, name)) return isTlsProxy(variable.substr(name.size()));
    }
    return false;
}

}  // namespace

bool mayMeetTlsProxy(const Request& request) {
    if (request.currentProxy && isTlsProxy(*request.currentProxy)) return true;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        if (mayNameProxy(*variable) && namesTlsProxy(*variable)) return true;
    }
    return false;
}

}  // namespace kel::http
