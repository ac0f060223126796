// SPDX-License-Identifier: MIT
#include <curl/curl.h>

#include <cstdarg>

#include "torture/Faults.h"
#include "torture/Next.h"

// Only so can they be defined.
#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_share_setopt

namespace {

using kel::http::torture::Kind;
using kel::http::torture::next;

// What libcurl asks of itself is not the library's to check; it fails for want of memory often enough.
bool isLibcurl(void* code) {
    static void* const base = [] {
        Dl_info info{};
        dladdr(dlsym(RTLD_NEXT, "curl_easy_init"), &info);
        return info.dli_fbase;
    }();
    Dl_info info{};
    return dladdr(code, &info) != 0 && info.dli_fbase == base;
}

bool fails(const char* call, void* caller, long detail = 0) {
    using namespace kel::http::torture;
    return faults::concerns(Kind::curl) && !isLibcurl(caller) && faults::strike(Kind::curl, call, detail);
}

}  // namespace

// By labels: what is const differs from one release to the next.
#define KEL_CURL(name, result, failure, parameters, arguments)                         \
    extern "C" result kel_##name parameters __asm__(#name);                            \
    extern "C" result kel_##name parameters {                                          \
        static auto* const real = next<result parameters>(#name);                      \
        return fails(#name, __builtin_return_address(0)) ? (failure) : real arguments; \
    }
KEL_CURL(curl_global_init, CURLcode, CURLE_OUT_OF_MEMORY, (long flags), (flags))
KEL_CURL(curl_easy_init, CURL*, nullptr, (), ())
KEL_CURL(curl_multi_init, CURLM*, nullptr, (), ())
KEL_CURL(curl_share_init, CURLSH*, nullptr, (), ())
KEL_CURL(curl_multi_add_handle, CURLMcode, CURLM_OUT_OF_MEMORY, (CURLM * multi, CURL* easy), (multi, easy))
KEL_CURL(curl_slist_append, curl_slist*, nullptr, (curl_slist * list, const char* text), (list, text))
KEL_CURL(curl_easy_escape, char*, nullptr, (CURL * easy, const char* text, int length), (easy, text, length))
KEL_CURL(curl_url, CURLU*, nullptr, (), ())
KEL_CURL(curl_url_set, CURLUcode, CURLUE_OUT_OF_MEMORY,
         (CURLU * handle, CURLUPart what, const char* part, unsigned int flags), (handle, what, part, flags))
KEL_CURL(curl_url_get, CURLUcode, CURLUE_OUT_OF_MEMORY,
         (const CURLU* handle, CURLUPart what, char** part, unsigned int flags), (handle, what, part, flags))
KEL_CURL(curl_mime_init, curl_mime*, nullptr, (CURL * easy), (easy))
KEL_CURL(curl_mime_addpart, curl_mimepart*, nullptr, (curl_mime * mime), (mime))
KEL_CURL(curl_mime_name, CURLcode, CURLE_OUT_OF_MEMORY, (curl_mimepart * part, const char* name), (part, name))
KEL_CURL(curl_mime_filename, CURLcode, CURLE_OUT_OF_MEMORY, (curl_mimepart * part, const char* name), (part, name))
KEL_CURL(curl_mime_type, CURLcode, CURLE_OUT_OF_MEMORY, (curl_mimepart * part, const char* type), (part, type))
KEL_CURL(curl_mime_filedata, CURLcode, CURLE_OUT_OF_MEMORY, (curl_mimepart * part, const char* path), (part, path))
KEL_CURL(curl_mime_data, CURLcode, CURLE_OUT_OF_MEMORY, (curl_mimepart * part, const char* data, std::size_t size),
         (part, data, size))
KEL_CURL(curl_mime_data_cb, CURLcode, CURLE_OUT_OF_MEMORY,
         (curl_mimepart * part, curl_off_t size, curl_read_callback read, curl_seek_callback seek,
          curl_free_callback release, void* data),
         (part, size, read, seek, release, data))

extern "C" {

CURLcode curl_easy_setopt(CURL* easy, CURLoption option, ...) {
    static auto* const real = next<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
    if (fails("curl_easy_setopt", __builtin_return_address(0), option)) return CURLE_OUT_OF_MEMORY;
    std::va_list arguments;
    va_start(arguments, option);
    CURLcode result = CURLE_OK;
    if (option >= CURLOPTTYPE_OFF_T + 10000) {  // blobs
        result = real(easy, option, va_arg(arguments, void*));
    } else if (option >= CURLOPTTYPE_OFF_T) {
        result = real(easy, option, va_arg(arguments, curl_off_t));
    } else if (option >= CURLOPTTYPE_OBJECTPOINT) {
        result = real(easy, option, va_arg(arguments, void*));
    } else {
        result = real(easy, option, va_arg(arguments, long));
    }
    va_end(arguments);
    return result;
}

CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {
    static auto* const real = next<CURLSHcode(CURLSH*, CURLSHoption, ...)>("curl_share_setopt");
    if (fails("curl_share_setopt", __builtin_return_address(0), option)) return CURLSHE_NOMEM;
    std::va_list arguments;
    va_start(arguments, option);
    const bool number = option == CURLSHOPT_SHARE || option == CURLSHOPT_UNSHARE;
    const CURLSHcode result =
        number ? real(share, option, va_arg(arguments, int)) : real(share, option, va_arg(arguments, void*));
    va_end(arguments);
    return result;
}

CURLcode curl_easy_getinfo(CURL* easy, CURLINFO info, ...) {
    static auto* const real = next<CURLcode(CURL*, CURLINFO, ...)>("curl_easy_getinfo");
    if (fails("curl_easy_getinfo", __builtin_return_address(0), info)) return CURLE_OUT_OF_MEMORY;
    std::va_list arguments;
    va_start(arguments, info);
    auto* const target = va_arg(arguments, void*);
    va_end(arguments);
    return real(easy, info, target);
}
}
