// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <tl/optional.hpp>
#include <vector>

#include "kel-http/EnumFormatter.h"
#include "kel-http/Export.h"
#include "kel-http/HeaderMap.h"
#include "kel-http/MimePart.h"

struct x509_store_ctx_st;  // OpenSSL's X509_STORE_CTX

namespace kel::http {

// The numbers of these enumerations are part of the interface: they appear in log lines and cross library versions.

// HTTP methods (RFC 9110, section 9; PATCH: RFC 5789).
enum class Method : std::uint32_t { POST = 0, PUT = 1, GET = 2, DELETE = 3, PATCH = 4 };

// How the user is authenticated to the server (`CURLOPT_HTTPAUTH`).
enum class AuthMethod : std::uint32_t {
    // Basic only (RFC 7617), and only after the server has asked for it.
    BASIC = 0,
    // Whatever libcurl finds safest among those that the server offers.
    ANY = 1
};

// The lowest TLS version that a connection may agree on (`CURLOPT_SSLVERSION`).
enum class MinTlsVersion : std::uint32_t { tls1_0 = 0, tls1_1 = 1, tls1_2 = 2 };

// Which addresses a host name may resolve to (`CURLOPT_IPRESOLVE`).
enum class IPVersion : std::uint32_t { Any = 0, IPv4 = 1, IPv6 = 2 };

// Whether a request takes part in the cookie store that all requests of the process share.
enum class CookieJar : std::uint32_t { no_cookies = 0, ro_cookies = 1, rw_cookies = 2 };

// Whether the engine's proxy settings apply to a request.
enum class Proxy : std::uint32_t { use_proxy = 0, bypass_proxy = 1 };

// The fixed names, as printed: "GET", "ANY", "tls1_2", "IPv4", "ro-cookies", "use-proxy". They live as long as the
// program. A value outside the enumeration is a programming error and aborts the process.
KEL_HTTP_EXPORT std::string_view name_of(Method value);
KEL_HTTP_EXPORT std::string_view name_of(AuthMethod value);
KEL_HTTP_EXPORT std::string_view name_of(MinTlsVersion value);
KEL_HTTP_EXPORT std::string_view name_of(IPVersion value);
KEL_HTTP_EXPORT std::string_view name_of(CookieJar value);
KEL_HTTP_EXPORT std::string_view name_of(Proxy value);

// The complete description of one HTTP request.
//
// A plain record: fill it on any thread, hand it to a Client, which copies it. It may be changed and used again at
// once. `url` alone is enough for a GET.
struct KEL_HTTP_EXPORT RequestConfig {
    // A certificate verifier as SSL_CTX_set_verify(3) takes it: the result of OpenSSL's own checks so far and the store
    // context; it returns 1 to accept. It has to wrap a plain function of exactly this signature.
    using Verifier = std::function<int(int, x509_store_ctx_st*)>;

    // Every default named below, and the one header "Content-Type: text/xml; charset=utf-8".
    RequestConfig();

    // The defaults, then the five values. `headers` replaces the default headers, but a default one that it does not
    // name (in any letter case) is kept: without a "Content-Type" of the caller's, the default one is sent.
    RequestConfig(Method method, const std::string& url, const HeaderMap& headers, const std::string& body,
                  std::chrono::milliseconds timeout);

    // Copies are independent of each other.
    RequestConfig(const RequestConfig& other);
    RequestConfig& operator=(const RequestConfig& other);

    // Moving takes no memory. What has been moved from may be assigned to, `config = {}` makes it new, or destroyed. Do
    // not start it: numbers and switches are as they were, but texts, lists and headers hold no one knows what, and an
    // optional text is still set. Made by the compiler of the program, which so runs with an older library as well.
    RequestConfig(RequestConfig&& other) = default;
    RequestConfig& operator=(RequestConfig&& other) = default;

    ~RequestConfig();

    // The authority part of `url`: what stands between "http://" or "https://" (in any letter case) and the next "/",
    // with port and user information as written. An URL of another scheme, or of none, is returned whole.
    std::string fqdn() const;

    // Lines for a log that describe the request. Header values, bodies, user names, passwords, proxies and multipart
    // parts are left out, and so are those in the URL.
    std::list<std::string> dump() const;

    // The HTTP method. Default: GET. The request may arrive more than once, a POST as well: libcurl sends it again when a
    // connection that has served before ends ahead of the answer, and each proxy that is tried in vain has sent it too.
    Method method;

    // The whole URL (RFC 3986); without a scheme "http" is assumed. Only http and https are allowed.
    std::string url;

    // Request headers. An entry with an empty value keeps libcurl from sending that header at all. A name or value with
    // a line break or zero byte in it, or an empty name, fails the request. For a multipart form set "Content-Type" to
    // "multipart/form-data" or erase the default entry; a JSON body needs "application/json". "Proxy-Authorization" goes
    // to the server, not to the engine's proxy: see Engine::setProxyConfig().
    HeaderMap headers;

    // User name for the server; credentials are used only when it is not empty. Default: empty.
    std::string user;

    // Password for the server. Default: empty.
    std::string password;

    // Default: ANY. Credentials are sent only after the server has asked for them: an authenticated request is two
    // round trips, and a server that never asks never sees them.
    AuthMethod auth_method;

    // The request body, which may hold zero bytes; for PUT with `body_is_file` the path of a file. Default: empty. Not
    // sent with GET.
    std::string body;

    // PUT only: `body` names a file whose content is sent. One that can not be read, or is no regular file, fails the
    // request; exactly as many bytes are sent as it has when the request begins. Such an upload can not be repeated, so a
    // server that asks for credentials fails it, and so does one that redirects with 301, 302, 307 or 308: put credentials
    // into an "Authorization" header, and send the file to the final URL. Default: false.
    bool body_is_file;

    // Parts of a multipart form, in order; POST only. When there are any, `body` must be empty, else the process stops.
    // Default: none.
    std::vector<MimePart> mime_parts;

    // false (the default): libcurl follows redirects, five at most. true: nobody does; the 3xx is the response, and the
    // caller finds the target in ResponseData::redirect_url.
    bool caller_handles_redirects;

    // Verify the server's certificate and its host name. Default: true.
    bool tls_verify;

    // A file of PEM certificates to trust. Unset (the default): the platform's own bundle. Set but empty: none.
    tl::optional<std::string> ca_file;

    // A folder of certificates to trust, named by their hash as openssl-rehash(1) does. Default: unset.
    tl::optional<std::string> ca_dir;

    // Accept a chain that ends at any trusted certificate, not only at a self-signed one. false leaves that to libcurl,
    // whose newer versions accept it anyway. true: the request has a connection of its own, as with `verifier`.
    // Default: false.
    bool tls_partial_chain;

    // The lowest TLS version. Unset (the default): 1.1.
    tl::optional<MinTlsVersion> min_tls_version;

    // Default: Any.
    IPVersion ip_version;

    // A PEM file with the client certificate for mutual TLS (`CURLOPT_SSLCERT`). It is presented when both files can be
    // read, else the device's own certificate from the platform's secure store. A device that has none fails every TLS
    // connection of a request without files. Default: unset.
    tl::optional<std::string> own_cert;

    // A PEM file with that certificate's private key (`CURLOPT_SSLKEY`), which is not encrypted: nobody is asked for a
    // pass phrase. Another key, for the same `own_cert` as well, counts as another identity. Default: unset.
    tl::optional<std::string> own_pkey;

    // Looks at the server's certificates during the handshake, on the engine thread. It alone decides when `tls_verify`
    // is off. The request has TLS connections of its own (HTTP/1.1) that no other one uses before or after, so that it
    // is asked each time, and only for its own requests. Default: empty.
    Verifier verifier;

    // Text for the verifier, which finds it as a C string in the handshake's SSL_CTX, under
    // certificate::sslctx_data_index(); null when unset. Default: unset.
    tl::optional<std::string> verifier_data;

    // no_cookies: the request neither sends nor keeps any. ro_cookies (the default): it sends stored cookies, and those
    // that it receives are known to later requests of this process. rw_cookies: the store is also written to the cookie
    // file once the outcome has been handed over; a callback can not count on it yet.
    CookieJar cookie_jar;

    // Forget what earlier requests left behind: a new cookie session, a new connection and a fresh name look-up. Stored
    // cookies whose domain is the end of the URL's host are dropped first. Over its new connection the request is sent
    // once. Default: false.
    bool reset_state;

    // The highest receive speed, in bytes per second. Unset (the default): no limit.
    tl::optional<std::uint32_t> speed_limit;

    // Longest time for the whole transfer, in milliseconds; 0 (the default), or less: no limit. It keeps running while
    // the request is paused.
    std::chrono::milliseconds timeout;

    // The largest response body to accept, in bytes. A size that a server announces is held against it for every answer on
    // the way, redirects and requests for credentials too, whose bodies nobody gets. Unset (the default): no limit.
    tl::optional<std::uint32_t> size_limit;

    // Collect ResponseData::timing_data. Default: false.
    bool timing_data;

    // Download: go on where the file at the target path ends. For GET only: with another method the request fails, unless
    // there is nothing yet. Default: false.
    bool resume;

    // Download: keep the partial file of a transfer that did not end well. Default: false.
    bool keep_partial_download;

    // bypass_proxy: the request does not go through the engine's proxies; libcurl's environment variables still apply.
    // When it has `proxies` as well, the engine's mode becomes Off for all requests. Default: use_proxy.
    Proxy proxy;

    // URLs of proxies ("host:port", "http://host:port"), tried in order until one works while the engine's mode is
    // PACUrl or WPAD. Those that failed within the last 30 minutes come last. `timeout` starts anew for each, and
    // each may have brought the whole request to the server. They are logged without the credentials in them. Default:
    // none.
    std::list<std::string> proxies;

    // Credentials that a `proxy` other than use_proxy sets with the mode. Only mode Manual uses them; see
    // Engine::setProxyConfig(). Default: empty.
    std::string proxy_user;

    // Default: empty.
    std::string proxy_password;

    // The target of a download; Client::start_download fills it in. Consulted when `resume` is set. Default: empty.
    std::string download_path;
};

}  // namespace kel::http

template <>
struct fmt::formatter<kel::http::Method> : kel::http::detail::EnumFormatter<kel::http::Method> {};
template <>
struct fmt::formatter<kel::http::AuthMethod> : kel::http::detail::EnumFormatter<kel::http::AuthMethod> {};
template <>
struct fmt::formatter<kel::http::MinTlsVersion> : kel::http::detail::EnumFormatter<kel::http::MinTlsVersion> {};
template <>
struct fmt::formatter<kel::http::IPVersion> : kel::http::detail::EnumFormatter<kel::http::IPVersion> {};
template <>
struct fmt::formatter<kel::http::CookieJar> : kel::http::detail::EnumFormatter<kel::http::CookieJar> {};
template <>
struct fmt::formatter<kel::http::Proxy> : kel::http::detail::EnumFormatter<kel::http::Proxy> {};
