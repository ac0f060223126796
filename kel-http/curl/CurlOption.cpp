// SPDX-License-Identifier: MIT
#include "kel-http/curl/CurlOption.h"

#include <fmt/format.h>

#include <new>
#include <stdexcept>
#include <string>

namespace kel::http {
namespace {

std::string nameOf(CURLoption option) {
#if LIBCURL_VERSION_NUM >= 0x074900
    if (const curl_easyoption* const known = curl_easy_option_by_id(option)) return known->name;
#endif
    return std::to_string(static_cast<int>(option));
}

}  // namespace

void refuseOption(CURLoption option, CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    throw std::runtime_error(
        fmt::format("libcurl refuses option {} of the request: {}", nameOf(option), curl_easy_strerror(result)));
}

void refuseCall(const char* what, CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    throw std::runtime_error(fmt::format("libcurl refuses {}: {}", what, curl_easy_strerror(result)));
}

}  // namespace kel::http
