// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <new>

namespace kel::http {

// libcurl itself, from before the first of its handles is made until the last one has been freed. The engine's owner.
class CurlLibrary {
 public:
    // Throws std::bad_alloc: libcurl does not say what else could be missing.
    CurlLibrary() {
        if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) throw std::bad_alloc();
    }
    ~CurlLibrary() { close(); }
    CurlLibrary(const CurlLibrary&) = delete;
    CurlLibrary& operator=(const CurlLibrary&) = delete;

    // The second call does nothing.
    void close() {
        if (isOpen) curl_global_cleanup();
        isOpen = false;
    }

 private:
    bool isOpen = true;
};

}  // namespace kel::http
