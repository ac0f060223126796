// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include "kel-http/Export.h"

// The engine's way to libcurl's multi interface, on the engine thread. Every easy handle is added and every transfer is
// driven through these functions, so that a program can watch or replace them: they are weak symbols, and a definition
// of the program's own takes their place, with the shared and with the static library alike. They must not throw.

// A new request without a list of proxies has been set up; its handle has been added, unless it was cancelled before.
// Does nothing.
KEL_HTTP_EXPORT void engine_request_added();

// curl_multi_add_handle(multi, easy). All options of `easy` are set by then; more of them, and of `multi`, may be set
// here (docs/extending.md tells which may not). A result other than CURLM_OK and CURLM_OUT_OF_MEMORY stops the process.
KEL_HTTP_EXPORT CURLMcode engine_curl_multi_add_handle(void* multi, void* easy);

// curl_multi_perform(multi, running). A program's own is called in each pass of the engine's loop; the library's only where
// all transfers have to be looked at.
KEL_HTTP_EXPORT CURLMcode engine_curl_multi_perform(void* multi, int* running);
