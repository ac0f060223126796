// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineCookies.h"

#include <array>
#include <ctime>
#include <locale>
#include <memory>
#include <string_view>

#include "kel-http/model/LogLine.h"
#include "tervo/platforminfo.h"
#include "uri/uri.h"

namespace kel::http {
namespace {

// A cookie as libcurl lists it, in the columns of the Netscape cookie file.
enum Column : std::size_t { domain, subdomains, path, secure, expiry, name, value, columns };
using Cookie = std::array<std::string_view, columns>;

// False when the line has another number of columns. An empty column counts.
bool split(std::string_view line, Cookie& cookie) {
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t tab = line.find('\t');
        const bool last = column == columns - 1;
        if ((tab == std::string_view::npos) != last) return false;
        cookie[column] = line.substr(0, tab);
        if (!last) line.remove_prefix(tab + 1);
    }
    return true;
}

// Whether the host ends in the domain, in any letter case. Where a label begins does not matter.
bool endsIn(std::string_view host, std::string_view domain_of_cookie) {
    if (domain_of_cookie.size() > host.size()) return false;
    host.remove_prefix(host.size() - domain_of_cookie.size());
    const std::locale locale;
    const auto& letters = std::use_facet<std::ctype<char>>(locale);
    for (std::size_t i = 0; i < host.size(); ++i) {
        if (letters.toupper(host[i]) != letters.toupper(domain_of_cookie[i])) return false;
    }
    return true;
}

// The same cookie, expired a second ago: libcurl removes what it replaces.
std::string expired(const Cookie& cookie) {
    return fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}", cookie[domain], cookie[subdomains], cookie[path], cookie[secure],
                       std::time(nullptr) - 1, cookie[name], cookie[value]);
}

}  // namespace

EngineCookies::EngineCookies(logging::Logger& log) : share(curl_share_init()), logger(&log) {}

void EngineCookies::open() {
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
}

void EngineCookies::close() {
    curl_share_cleanup(share);
}

void EngineCookies::addCookies(CURL* easy, const RequestConfig& config) {
    const CookieJar jar = config.cookie_jar;
    if (jar == CookieJar::no_cookies) return;
    const std::string file = tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP") + "/httpcookies";
    curl_easy_setopt(easy, CURLOPT_SHARE, share);  // first: the file is read into the cookies in force
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, file.c_str());
    if (jar == CookieJar::rw_cookies) curl_easy_setopt(easy, CURLOPT_COOKIEJAR, file.c_str());
}

void EngineCookies::addFreshCookies(CURL* easy, const RequestConfig& config) {
    const bool has_file = config.cookie_jar != CookieJar::no_cookies;
    curl_easy_setopt(easy, CURLOPT_COOKIESESSION, 1L);
    // libcurl would read the file when the transfer begins, and bring back what is deleted here.
    if (has_file) curl_easy_setopt(easy, CURLOPT_COOKIELIST, "RELOAD");
    deleteCookiesFromRequest(easy, config.url);
    if (has_file) {
        curl_easy_setopt(easy, CURLOPT_COOKIEFILE, static_cast<char*>(nullptr));
        curl_easy_setopt(easy, CURLOPT_SHARE, share);  // without a file libcurl has let go of the cookies
    }
}

void EngineCookies::deleteCookiesFromRequest(CURL* easy, const std::string& url) {
    constexpr const char* function = "deleteCookiesFromRequest";
    curl_slist* list = nullptr;
    const CURLcode result = curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &list);
    const std::unique_ptr<curl_slist, void (*)(curl_slist*)> lines(list, &curl_slist_free_all);
    if (result != CURLE_OK) {
        writeLine(*logger, log_level::error, "{}: Fetching curl cookie list failed, unable to clear cookies: '{}'",
                  function, curl_easy_strerror(result));
        return;
    }
    if (!lines) {
        writeLine(*logger, log_level::detail, "{}: curl cookie list empty, no cookies to clear", function);
        return;
    }
    const uri::uri target(url);
    for (const curl_slist* line = lines.get(); line != nullptr; line = line->next) {
        Cookie cookie;
        if (!split(line->data, cookie)) {
            writeLine(*logger, log_level::error, "{}: curl cookie didn't split into 7 parts, skipping. [{}]", function,
                      line->data);
        } else if (endsIn(target.authority_host(), cookie[domain])) {
            writeLine(*logger, log_level::detail, "{}: deleting cookie '{}' for domain '{}'", function, cookie[name],
                      cookie[domain]);
            curl_easy_setopt(easy, CURLOPT_COOKIELIST, expired(cookie).c_str());
        }
    }
}

}  // namespace kel::http
