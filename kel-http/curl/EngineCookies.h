// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <tl/optional.hpp>

#include "kel-http/RequestConfig.h"
#include "kel-http/curl/CookieFile.h"
#include "kel-http/curl/CookieSave.h"
#include "logging/Logger.h"

namespace kel::http {

// The cookies in force, which all transfers with a cookie jar share, and the file that they come from and go to.
// Engine thread; made and closed by the engine's owner while that thread is not running.
class EngineCookies {
 public:
    // Throws std::bad_alloc.
    explicit EngineCookies(logging::Logger& log);
    EngineCookies(const EngineCookies&) = delete;
    EngineCookies& operator=(const EngineCookies&) = delete;

    // Before the first transfer is set up. Throws std::bad_alloc.
    void open();
    // When the last transfer has been freed.
    void close();

    // Gives the transfer the jar that its request asks for, with what the file holds. A writer's end writes the file
    // through `save`. Throws when libcurl refuses.
    void addCookies(CURL* easy, const RequestConfig& config, CookieSave& save);

    // Forgets the cookies of the request's host, and the session cookies of the file. Throws when libcurl refuses.
    void addFreshCookies(CURL* easy, const RequestConfig& config, CookieSave& save);

    // Writes the cookies in force to the file in `folder`, together with those that have got there since, or not. What
    // fails is told in the log, and the file stays as it was.
    void saveCookies(const std::string& folder, bool with_those_of_the_file) noexcept;

 private:
    struct EasyEnd {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };
    struct ShareEnd {
        void operator()(CURLSH* cookies) const noexcept { curl_share_cleanup(cookies); }
    };
    using EasyHandle = std::unique_ptr<CURL, EasyEnd>;

    EasyHandle makeReader() const;
    tl::optional<Descriptor> openFile(const std::string& folder) const;
    bool readFile(const std::string& folder, bool new_session) const;
    static void load(CURL* reader, const Descriptor& file, const std::string& folder, bool new_session);
    void deleteCookiesFromRequest(CURL* easy, const std::string& url);

    // Null when libcurl has been built without cookies.
    std::unique_ptr<CURLSH, ShareEnd> share;
    logging::Logger* const logger;
};

inline CookieSave::~CookieSave() {
    if (cookies != nullptr) cookies->saveCookies(folder, readsFile);
}

}  // namespace kel::http
