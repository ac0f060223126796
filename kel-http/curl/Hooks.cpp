// SPDX-License-Identifier: MIT
#include "kel-http/curl/Hooks.h"

// Nothing else belongs into this file: a static library's member is left out as a whole when the program brings its
// own, and then nothing has the library's second name for its own function.
#define KEL_REPLACEABLE __attribute__((weak, noinline))

KEL_REPLACEABLE void engine_request_added() {}

KEL_REPLACEABLE CURLMcode engine_curl_multi_add_handle(void* multi, void* easy) {
    return curl_multi_add_handle(multi, easy);
}

KEL_REPLACEABLE CURLMcode engine_curl_multi_perform(void* multi, int* running) {
    return curl_multi_perform(multi, running);
}

CURLMcode own_curl_multi_add_handle(void* multi, void* easy)
    __attribute__((alias("_Z28engine_curl_multi_add_handlePvS_"), visibility("hidden")));
CURLMcode own_curl_multi_perform(void* multi, int* running)
    __attribute__((alias("_Z25engine_curl_multi_performPvPi"), visibility("hidden")));
