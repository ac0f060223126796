// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "kel-http/HeaderMap.h"

namespace kel::http {

// What a client writes to its log about one request. Its functions run on the executor's thread and must not throw; an
// empty one leaves the text as it is.
//
// Whatever the filter: of the headers only "TrackingID" and "Warning" of a request, "Location", "Retry-After" and
// "Warning" of a response are ever written, and of bodies only JSON, URL-encoded forms and HTML.
// The engine's own logger "HttpClient" knows nothing of filters and prints URLs, and at level 4 and above headers: keep
// its level at 0 where nothing may be written.
struct LogFilter {
    // "Detailed" below: the client's logger has a verbosity of 9 or more.
    enum class Mode : std::uint32_t {
        // The default. Request bodies when detailed; response bodies when detailed or when the status is not 200 to 299.
        standard = 0,
        // Request bodies always; response bodies as in `standard`.
        request_payload = 1,
        // All bodies.
        all_payload = 2,
        // Nothing at all: no line for the request, its response, its error or its cancellation.
        silent = 3,
        // Bodies when detailed only.
        quiet_payload = 4
    };

    // Rewrites the request's URL.
    std::function<std::string(const std::string&)> url_filter;

    // Rewrites the request's body.
    std::function<std::string(const std::string&)> request_body_filter;

    // Rewrites the response's body.
    std::function<std::string(const std::string&)> response_body_filter;

    // Rewrites the headers, of the request and of the response alike.
    std::function<HeaderMap(const HeaderMap&)> header_filter;

    // Which bodies are written. Default: standard.
    Mode mode = Mode::standard;
};

}  // namespace kel::http
