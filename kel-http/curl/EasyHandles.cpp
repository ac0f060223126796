// SPDX-License-Identifier: MIT
#include "kel-http/curl/EasyHandles.h"

#include <strings.h>

#include <algorithm>
#include <new>
#include <utility>

#include "kel-http/RequestConfig.h"
#include "kel-http/curl/CurlLibrary.h"

namespace kel::http {
namespace {

// Before 7.77 a handle never forgets that it has been asked for cookies, nor the names of files with some.
constexpr unsigned int wipes_cookies = 0x074d00;

long figureOf(CURL* easy, CURLINFO info) {
    long figure = -1;
    return curl_easy_getinfo(easy, info, &figure) == CURLE_OK ? figure : -1;
}

// libcurl notes in the handle what it has learned on the way to an answer, so as to do without "Expect" behind a 417, and
// does not wipe all of that. What it answers to a server counts as a redirect.
bool wasAnsweredAtOnce(CURL* easy) {
    return figureOf(easy, CURLINFO_REDIRECT_COUNT) == 0;
}

bool isSmall(CURL* easy) {
    const long header_bytes = figureOf(easy, CURLINFO_HEADER_SIZE);
    return header_bytes >= 0 && static_cast<unsigned long>(header_bytes) <= EasyHandles::most_held_bytes;
}

// To libcurl the name ends at ":" or ";", which may be part of it here: whatever begins like "Host" counts.
bool namesHost(const HeaderMap& headers) {
    return std::any_of(headers.begin(), headers.end(),
                       [](const auto& header) { return strncasecmp(header.first.c_str(), "Host", 4) == 0; });
}

// What libcurl keeps in the handle beyond its reset: the host whose cookies go along, also with later requests to others, and
// the offset's line, which it sends beside a "Range" of a later request's own.
bool leavesTraces(const RequestConfig& config) {
    return config.resume || namesHost(config.headers);
}

// Cookies first: with the share still there it is not the shared ones that are thrown away.
bool takeOutWhatOutlastsOptions(CURL* easy) {
    return curl_easy_setopt(easy, CURLOPT_COOKIEFILE, nullptr) == CURLE_OK &&
           curl_easy_setopt(easy, CURLOPT_SHARE, nullptr) == CURLE_OK;
}

}  // namespace

EasyHandles::EasyHandles(unsigned int libcurl_version) : canWipe(libcurl_version >= wipes_cookies) {}

bool EasyHandles::mayServeOthers(const RequestConfig& config) {
    return !config.reset_state && !config.verifier && !config.tls_partial_chain && !leavesTraces(config) &&
           config.url.size() <= most_held_bytes;
}

EasyHandle EasyHandles::take(bool may_serve_others) {
    EasyHandle easy(may_serve_others && count > 0 ? kept[--count].release() : curl_easy_init());
    if (!easy) throw std::bad_alloc();
    return easy;
}

void EasyHandles::giveBack(EasyHandle easy) noexcept {
    if (!canWipe || count == kept.size()) return;
    if (!wasAnsweredAtOnce(easy.get()) || !isSmall(easy.get())) return;
    if (!takeOutWhatOutlastsOptions(easy.get())) return;
    curl_easy_reset(easy.get());
    // It sets some defaults anew, which takes memory, and stops half-way without a word when there is none.
    if (!CurlLibrary::isMemoryAmple()) return;
    kept[count++] = std::move(easy);
}

void EasyHandles::clear() noexcept {
    while (count > 0) kept[--count].reset();
}

}  // namespace kel::http
