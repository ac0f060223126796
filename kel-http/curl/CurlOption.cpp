// SPDX-License-Identifier: MIT
#include "kel-http/curl/CurlOption.h"

#include <fmt/format.h>

#include <new>
#include <stdexcept>
#include <string>

namespace kel::http {

// By its number, which <curl/curl.h> tells: libcurl knows names only since 7.73.
void refuseOption(CURLoption option, CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    throw std::runtime_error(fmt::format("libcurl refuses option {} of the request: {}", static_cast<int>(option),
                                         curl_easy_strerror(result)));
}

void refuseCall(const char* what, CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    throw std::runtime_error(fmt::format("libcurl refuses {}: {}", what, curl_easy_strerror(result)));
}

}  // namespace kel::http
