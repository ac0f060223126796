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

// "https_proxy=https://proxy:443", "ALL_PROXY=...". Each request asks, and most variables have another first letter.
bool namesTlsProxy(std::string_view variable) {
    if (variable.empty() || (asciiLower(variable.front()) != 'h' && asciiLower(variable.front()) != 'a')) return false;
    for (const std::string_view name : {"https_proxy=", "http_proxy=", "all_proxy="}) {
        if (startsWithIgnoringCase(variable, name)) return isTlsProxy(variable.substr(name.size()));
    }
    return false;
}

}  // namespace

bool mayMeetTlsProxy(const Request& request) {
    if (request.currentProxy && isTlsProxy(*request.currentProxy)) return true;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        if (namesTlsProxy(*variable)) return true;
    }
    return false;
}

}  // namespace kel::http
