// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <string>

#include "kel-http/curl/ActiveTask.h"

namespace kel::http {

// How one run of a request has ended: what the callback handler is given, as a closure. It is made when the run is queued
// and filled in when the run has ended, by when there may be no memory left.
//
// Filled in on the engine thread; called wherever the callback handler decides, once.
struct Outcome {
    Outcome(RequestPtr of_request, std::uint32_t of_run);

    // A closure with an Outcome inside.
    static std::function<void()> closureFor(const RequestPtr& request, std::uint32_t run);
    static Outcome& in(std::function<void()>& closure);

    // Says why the library has ended the run. Never throws: without memory the text is the want of it.
    void setFault(const char* text) noexcept;

    // Whether somebody has called it, or a copy of it.
    bool hasBegun() const;

    // The one final call of the request's hooks; none when the run was cancelled, or has told its outcome before.
    void operator()() const;

    RequestPtr request;
    std::uint32_t run;
    CURLcode result = CURLE_OK;
    long responseCode = 0;
    // Empty: libcurl's result tells all.
    std::string fault;
};

}  // namespace kel::http
