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

// The cookies in force, which all transfers with a cookie jar share, and the file that they come from and go to. What
// libcurl lets transfers share comes as one, so TLS sessions are in here, too: those of transfers with a cookie jar, and
// beside them those of the others, to which a session could tell as much as a cookie.
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

    // Gives the transfer TLS sessions, and the jar that its request asks for, with what the file holds. A writer's end writes the file
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

    void addSessions(CURL* easy) const;
    EasyHandle makeReader() const;
    tl::optional<Descriptor> openFile(const std::string& folder) const;
    bool readFile(const std::string& folder, bool new_session) const;
    static void load(CURL* reader, const Descriptor& file, const std::string& folder, bool new_session);
    void deleteCookiesFromRequest(CURL* easy, const std::string& url);

    using Share = std::unique_ptr<CURLSH, ShareEnd>;

    // Null when libcurl has been built without cookies.
    Share share;
    // TLS sessions alone. Null when libcurl has been built without TLS.
    Share sessions;
    logging::Logger* const logger;
};

inline CookieSave::~CookieSave() {
    if (cookies != nullptr) cookies->saveCookies(folder, readsFile);
}

}  // namespace kel::http
