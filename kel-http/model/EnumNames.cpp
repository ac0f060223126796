// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "kel-http/RequestConfig.h"

namespace kel::http {

std::string_view name_of(Method value) {
    switch (value) {
        case Method::POST:
            return "POST";
        case Method::PUT:
            return "PUT";
        case Method::GET:
            return "GET";
        case Method::DELETE:
            return "DELETE";
        case Method::PATCH:
            return "PATCH";
    }
    std::abort();
}

std::string_view name_of(AuthMethod value) {
    switch (value) {
        case AuthMethod::BASIC:
            return "BASIC";
        case AuthMethod::ANY:
            return "ANY";
    }
    std::abort();
}

std::string_view name_of(MinTlsVersion value) {
    switch (value) {
        case MinTlsVersion::tls1_0:
            return "tls1_0";
        case MinTlsVersion::tls1_1:
            return "tls1_1";
        case MinTlsVersion::tls1_2:
            return "tls1_2";
    }
    std::abort();
}

std::string_view name_of(IPVersion value) {
    switch (value) {
        case IPVersion::Any:
            return "Any";
        case IPVersion::IPv4:
            return "IPv4";
        case IPVersion::IPv6:
            return "IPv6";
    }
    std::abort();
}

std::string_view name_of(CookieJar value) {
    switch (value) {
        case CookieJar::no_cookies:
            return "no-cookies";
        case CookieJar::ro_cookies:
            return "ro-cookies";
        case CookieJar::rw_cookies:
            return "rw-cookies";
    }
    std::abort();
}

std::string_view name_of(Proxy value) {
    switch (value) {
        case Proxy::use_proxy:
            return "use-proxy";
        case Proxy::bypass_proxy:
            return "bypass-proxy";
    }
    std::abort();
}

}  // namespace kel::http
