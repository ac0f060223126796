// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <string>

#include "kel-http/RequestConfig.h"
#include "logging/Logger.h"

namespace kel::http {

// The cookies in force, which all transfers with a cookie jar share, and the file that they come from and go to.
// Engine thread; made and closed by the engine's owner while that thread is not running.
class EngineCookies {
 public:
    explicit EngineCookies(logging::Logger& log);
    EngineCookies(const EngineCookies&) = delete;
    EngineCookies& operator=(const EngineCookies&) = delete;

    // Before the first transfer is set up.
    void open();
    // When the last transfer has been freed.
    void close();

    // Gives the transfer the jar that its request asks for.
    void addCookies(CURL* easy, const RequestConfig& config);

    // Forgets the cookies of the request's host, and the session cookies of the file.
    void addFreshCookies(CURL* easy, const RequestConfig& config);

 private:
    void deleteCookiesFromRequest(CURL* easy, const std::string& url);

    CURLSH* const share;
    logging::Logger* const logger;
};

}  // namespace kel::http
