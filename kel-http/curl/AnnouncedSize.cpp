// SPDX-License-Identifier: MIT
#include "kel-http/curl/AnnouncedSize.h"

#include "kel-http/curl/RequestImpl.h"

namespace kel::http {

std::uint64_t announcedBytes(const Request& request) {
    CURL* const easy = stateOf(request).receiving;
    if (easy == nullptr) return 0;
    curl_off_t bytes = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &bytes);
    return bytes > 0 ? static_cast<std::uint64_t>(bytes) : 0;
}

}  // namespace kel::http
