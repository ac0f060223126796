// SPDX-License-Identifier: MIT
#include "uri/uri.h"

#include <curl/curl.h>

#include <memory>

#if LIBCURL_VERSION_NUM < 0x073e00
#include "authority.h"
#endif

namespace uri {

#if LIBCURL_VERSION_NUM >= 0x073e00
namespace {

struct Release {
    void operator()(CURLU* handle) const noexcept { curl_url_cleanup(handle); }
    void operator()(char* text) const noexcept { curl_free(text); }
};

std::string without_brackets(std::string host) {
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') return host.substr(1, host.size() - 2);
    return host;
}

std::string host_in(const std::string& url) {
    const std::unique_ptr<CURLU, Release> handle(curl_url());
    const auto flags = CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME;
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), flags) != CURLUE_OK) return {};
    char* host = nullptr;
    if (curl_url_get(handle.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) return {};
    const std::unique_ptr<char, Release> owner(host);
    return without_brackets(host);
}

}  // namespace
#endif

uri::uri(const std::string& text) : authority_host_(host_in(text)) {}

}  // namespace uri
