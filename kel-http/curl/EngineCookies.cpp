// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineCookies.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <locale>
#include <new>
#include <string_view>
#include <utility>

#include "kel-http/curl/CurlOption.h"
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

// A line with more columns than it should have, its value concealed.
std::string withoutValue(std::string_view line) {
    std::size_t end = 0;
    for (std::size_t column = 0; column < value; ++column) {
        end = line.find('\t', end);
        if (end == std::string_view::npos) return std::string(line);
        ++end;
    }
    return std::string(line.substr(0, end)).append("xxxxxx");
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

// False: libcurl has been built without.
bool keep(CURLSH* share, curl_lock_data what) {
    const CURLSHcode result = curl_share_setopt(share, CURLSHOPT_SHARE, what);
    if (result == CURLSHE_NOMEM) throw std::bad_alloc();
    return result == CURLSHE_OK;
}

using CookieLines = std::unique_ptr<curl_slist, void (*)(curl_slist*)>;

CookieLines noLines() {
    return {nullptr, &curl_slist_free_all};
}

// libcurl says nothing when it has no memory for the list, which then looks like that of an empty store. It is asked again
// in case of that: what is taken for empty loses the file's cookies.
CURLcode listCookies(CURL* easy, CookieLines& lines) {
    CURLcode result = CURLE_OK;
    for (int attempt = 0; attempt < 2 && result == CURLE_OK && !lines; ++attempt) {
        curl_slist* list = nullptr;
        result = curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &list);
        lines.reset(list);
    }
    return result;
}

}  // namespace

EngineCookies::EngineCookies(logging::Logger& log)
    : share(curl_share_init()), sessions(curl_share_init()), logger(&log) {
    if (!share || !sessions) throw std::bad_alloc();
}

// No functions that lock: one thread uses them.
void EngineCookies::open() {
    if (!keep(share.get(), CURL_LOCK_DATA_COOKIE)) share.reset();
    if (!keep(sessions.get(), CURL_LOCK_DATA_SSL_SESSION)) return sessions.reset();
    if (share) keep(share.get(), CURL_LOCK_DATA_SSL_SESSION);
}

void EngineCookies::close() {
    share.reset();
    sessions.reset();
}

void EngineCookies::addCookies(CURL* easy, const RequestConfig& config, CookieSave& save) {
    if (config.cookie_jar == CookieJar::no_cookies || !share) return addSessions(easy);
    setOption(easy, CURLOPT_SHARE, share.get());
    // No name of a file, only the wish for cookies: libcurl would open whatever has that name by then.
    setOption(easy, CURLOPT_COOKIEFILE, "");
    std::string folder = tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP");
    if (folder.empty()) return;
    // Starting afresh reads another selection.
    if (!config.reset_state && !readFile(folder, false)) return;
    if (config.cookie_jar == CookieJar::rw_cookies) save.plan(*this, std::move(folder));
}

void EngineCookies::addSessions(CURL* easy) const {
    if (sessions) setOption(easy, CURLOPT_SHARE, sessions.get());
}

void EngineCookies::addFreshCookies(CURL* easy, const RequestConfig& config, CookieSave& save) {
    if (!share) return;
    setOption(easy, CURLOPT_COOKIESESSION, 1L);
    if (config.cookie_jar != CookieJar::no_cookies) {
        // What the file holds of the host goes with the rest, and must not come back when the transfer ends.
        const std::string folder = tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP");
        if (!folder.empty() && !readFile(folder, true)) save.drop();
        save.leaveOutOldFile();
    }
    deleteCookiesFromRequest(easy, config.url);
}

// A handle that is never sent, with the cookies in force. One for each use: libcurl before 7.77 does not forget the names
// of files that a handle has read.
EngineCookies::EasyHandle EngineCookies::makeReader() const {
    EasyHandle reader(curl_easy_init());
    if (!reader) throw std::bad_alloc();
    setOption(reader.get(), CURLOPT_SHARE, share.get());
    return reader;
}

// The file, or a closed descriptor when there is none; empty when it is not to be used.
tl::optional<Descriptor> EngineCookies::openFile(const std::string& folder) const {
    OpenedCookieFile file = openCookieFile(folder);
    if (file.fault.empty()) return std::move(file.descriptor);
    writeLine(*logger, log_level::error, "{}: The cookie file '{}' is neither read nor written: {}", "openCookieFile",
              cookieFilePath(folder), file.fault);
    return tl::nullopt;
}

// Adds what the file holds to the cookies in force, of which none is replaced. False when it is not to be used.
bool EngineCookies::readFile(const std::string& folder, bool new_session) const {
    const tl::optional<Descriptor> file = openFile(folder);
    if (file && file->isOpen()) load(makeReader().get(), *file, folder, new_session);
    return file.has_value();
}

void EngineCookies::load(CURL* reader, const Descriptor& file, const std::string& folder, bool new_session) {
    // The very file that has been looked at. Only where no /proc is mounted it is opened by its name once more.
    std::array<char, 32> opened{};
    std::snprintf(opened.data(), opened.size(), "/proc/self/fd/%d", file.get());
    const bool has_proc = access(opened.data(), F_OK) == 0;
    if (new_session) setOption(reader, CURLOPT_COOKIESESSION, 1L);
    setOption(reader, CURLOPT_COOKIEFILE, has_proc ? opened.data() : cookieFilePath(folder).c_str());
    setOption(reader, CURLOPT_COOKIELIST, "RELOAD");
}

void EngineCookies::saveCookies(const std::string& folder, bool with_those_of_the_file) noexcept {
    try {
        const tl::optional<Descriptor> file = openFile(folder);
        if (!file) return;
        const EasyHandle reader = makeReader();
        if (with_those_of_the_file && file->isOpen()) load(reader.get(), *file, folder, false);
        CookieLines lines = noLines();
        requireCall(listCookies(reader.get(), lines), "to list the cookies");
        const std::string fault = replaceCookieFile(folder, cookieFileText(lines.get(), std::time(nullptr)));
        if (fault.empty()) return;
        writeLine(*logger, log_level::error, "{}: The cookies can not be kept in '{}', which stays as it was: {}",
                  "saveCookies", cookieFilePath(folder), fault);
    } catch (const std::bad_alloc&) {
        logger->write(log_level::error, "saveCookies: The cookie file stays as it was: there is no memory for more");
    } catch (const std::exception& error) {
        writeLine(*logger, log_level::error, "{}: The cookies can not be kept: {}", "saveCookies", error.what());
    }
}

void EngineCookies::deleteCookiesFromRequest(CURL* easy, const std::string& url) {
    constexpr const char* function = "deleteCookiesFromRequest";
    CookieLines lines = noLines();
    const CURLcode result = listCookies(easy, lines);
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
                      withoutValue(line->data));
        } else if (endsIn(target.authority_host(), cookie[domain])) {
            writeLine(*logger, log_level::detail, "{}: deleting cookie '{}' for domain '{}'", function, cookie[name],
                      cookie[domain]);
            setOption(easy, CURLOPT_COOKIELIST, expired(cookie).c_str());
        }
    }
}

}  // namespace kel::http
