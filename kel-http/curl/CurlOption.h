// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <type_traits>

namespace kel::http {

// Throws what says that libcurl has refused something without which another request would be sent, or to somebody else,
// or with other credentials, or trusting others: std::bad_alloc for want of memory, else std::runtime_error with a text
// that tells the option's number or names `what`.
[[noreturn]] void refuseOption(CURLoption option, CURLcode result);
[[noreturn]] void refuseCall(const char* what, CURLcode result);

// Sets an option of a transfer, which may not be left out (`curl_easy_setopt`). Throws as above.
//
// What a build of libcurl may lack, and can do without, is set by curl_easy_setopt() itself, with a word about why.
template <typename Value>
void setOption(CURL* easy, CURLoption option, Value value) {
    // libcurl takes what it gets for one of these.
    static_assert(std::is_same_v<Value, long> || std::is_same_v<Value, curl_off_t> || std::is_pointer_v<Value>);
    const CURLcode result = curl_easy_setopt(easy, option, value);
    if (result != CURLE_OK) refuseOption(option, result);
}

// The same for another call of libcurl, which is named by `what`.
inline void requireCall(CURLcode result, const char* what) {
    if (result != CURLE_OK) refuseCall(what, result);
}

}  // namespace kel::http
