// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineTls.h"

#include <algorithm>
#include <stdexcept>

#include "certificate/certificate.h"
#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/curl/Tls.h"
#include "kel-http/curl/TlsFiles.h"
#include "kel-http/curl/TlsProxy.h"
#include "kel-http/model/AsciiCase.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

// Above libcurl's own floor: what is older is broken.
constexpr MinTlsVersion default_floor = MinTlsVersion::tls1_1;

constexpr std::chrono::seconds a_day = std::chrono::hours(24);

// libcurl picks a connection from its pool, and a TLS session to resume, without regard to verifiers. A handshake that
// a lax verifier let pass must serve nobody else, and none that was made without it may serve a strict one.
bool needsOwnConnection(const RequestConfig& config) {
    return config.verifier || config.tls_partial_chain;
}

bool mayResume(const RequestConfig& config) {
    return config.tls_verify && !config.reset_state && !needsOwnConnection(config);
}

long curlTlsVersion(MinTlsVersion version) {
    switch (version) {
        case MinTlsVersion::tls1_0:
            return CURL_SSLVERSION_TLSv1_0;
        case MinTlsVersion::tls1_1:
            return CURL_SSLVERSION_TLSv1_1;
        case MinTlsVersion::tls1_2:
            break;
    }
    return CURL_SSLVERSION_TLSv1_2;
}

// A fresh connection is not enough: libcurl looks into its pool all the same once it follows a redirect or answers a
// request for credentials. It does keep connections of different TLS versions apart, so these requests name a highest
// version, the one that is in force without a name as well.
long curlTlsVersions(const RequestConfig& config) {
    const long lowest = curlTlsVersion(config.min_tls_version.value_or(default_floor));
    return needsOwnConnection(config) ? lowest | CURL_SSLVERSION_MAX_DEFAULT : lowest;
}

bool isMissing(CURLcode result) {
    return result == CURLE_NOT_BUILT_IN || result == CURLE_UNKNOWN_OPTION;
}

// A libcurl without TLS can do without: it makes no connection that versions would matter to.
void setVersions(CURL* easy, const RequestConfig& config) {
    const CURLcode result = curl_easy_setopt(easy, CURLOPT_SSLVERSION, curlTlsVersions(config));
    if (result != CURLE_OK && !isMissing(result)) refuseOption(CURLOPT_SSLVERSION, result);
}

// A libcurl with another TLS library than OpenSSL has no such function. Requests to which it would only bring the
// device's identity go on, http among them; no verifier may be left out.
void setContextFunction(CURL* easy, RequestConfig& config, curl_ssl_ctx_callback function) {
    CURLcode result = curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, &config);
    if (result == CURLE_OK) result = curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, function);
    if (result == CURLE_OK) return;
    if (!isMissing(result)) refuseOption(CURLOPT_SSL_CTX_FUNCTION, result);
    if (needsOwnConnection(config)) throw std::runtime_error("libcurl was built without OpenSSL");
    EngineTls::leaveSessionsAlone(easy);
}

void addOwnIdentity(CURL* easy, const RequestConfig& config, const std::string& certificate_name) {
    requireReadyKey(*config.own_pkey);
    setOption(easy, CURLOPT_SSLCERT, certificate_name.c_str());
    setOption(easy, CURLOPT_SSLCERTTYPE, "PEM");
    setOption(easy, CURLOPT_SSLKEY, config.own_pkey->c_str());
    setOption(easy, CURLOPT_SSLKEYTYPE, "PEM");
    // Without a pass phrase OpenSSL asks for one, on the terminal or on standard input, and all transfers wait.
    setOption(easy, CURLOPT_KEYPASSWD, "");
}

void addOwnConnection(CURL* easy) {
    setOption(easy, CURLOPT_FRESH_CONNECT, 1L);
    setOption(easy, CURLOPT_FORBID_REUSE, 1L);
    EngineTls::leaveSessionsAlone(easy);
    // With HTTP/2 others would join the connection while it is in use.
    setOption(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
}

}  // namespace

// A libcurl without TLS has no sessions.
void EngineTls::leaveSessionsAlone(CURL* easy) {
    const CURLcode result = curl_easy_setopt(easy, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    if (result != CURLE_OK && !isMissing(result)) refuseOption(CURLOPT_SSL_SESSIONID_CACHE, result);
}

bool EngineTls::noteResult(CURLcode result, const Request& request) {
    switch (result) {
        case CURLE_OUT_OF_MEMORY:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            lastFailure = clock();
            break;
        default:
            return false;
    }
    return result == CURLE_SSL_CONNECT_ERROR && mayResume(request.config) &&
           refusals.note(request.config.url, stateOf(request).errorBuffer.data());
}

// libcurl keeps the certificates of a CA file for a day. What it has read while memory was short is not complete, and
// fails each handshake for as long: what was read before one failed is read anew.
void EngineTls::addCertificateCache([[maybe_unused]] CURL* easy) const {
#if LIBCURL_VERSION_NUM >= 0x075700
    if (!lastFailure) return;
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(clock() - *lastFailure);
    // Unchecked: not every TLS library has such a cache.
    curl_easy_setopt(easy, CURLOPT_CA_CACHE_TIMEOUT, static_cast<long>(std::min(age, a_day).count()));
#endif
}

void EngineTls::addTlsConfig(CURL* easy, Request& request) {
    const RequestConfig& config = request.config;
    endOldSessions();
    setVersions(easy, config);
    addIdentity(easy, request);
    addVerification(easy, config);
    addCertificateCache(easy);
    if (needsOwnConnection(config)) {
        addOwnConnection(easy);
    } else if (!mayResume(config) || refusals.concern(config.url)) {
        leaveSessionsAlone(easy);
    }
}

// Sessions follow from one another, for as long as a server likes. Nobody looks at its certificate meanwhile, which may
// have expired.
void EngineTls::endOldSessions() {
    const auto now = clock();
    if (now - begun < a_day) return;
    trustFiles.startAnew();
    begun = now;
}

// Decided here for all handshakes of the transfer: files may come and go before each of them.
void EngineTls::addIdentity(CURL* easy, Request& request) {
    RequestConfig& config = request.config;
    if (!tls::hasOwnIdentityFiles(config)) {
        if (config.own_cert) requireRegularFile("own_cert", *config.own_cert);
        if (config.own_pkey) requireRegularFile("own_pkey", *config.own_pkey);
        addDevice(easy, request);
        return;
    }
    const std::string& name = trustFiles.nameOfIdentity(*config.own_cert, *config.own_pkey);
    if (needsOwnConnection(config)) setContextFunction(easy, config, &tls::setupSSLCTXCallback);
    writeLine(*logger, log_level::detail, "({}) Configuring own certificate for mTLS (cert={}; pkey={})", request.id(),
              *config.own_cert, *config.own_pkey);
    addOwnIdentity(easy, config, name);
    if (mayMeetTlsProxy(request)) leaveSessionsAlone(easy);
}

// libcurl does not see the device's certificate. Once that has changed, whatever is named has another name. A redirect, too,
// may lead to a connection that has been there before the change, and no handshake tells of it then.
void EngineTls::addDevice(CURL* easy, Request& request) {
    RequestConfig& config = request.config;
    const bool may_come_to_tls = startsWithIgnoringCase(config.url, "https:") || !config.caller_handles_redirects;
    const bool may_share = may_come_to_tls && !needsOwnConnection(config);
    if (may_share && device.look()) trustFiles.startAnew();
    stateOf(request).tls = this;
    stateOf(request).deviceNumber = device.number();
    setContextFunction(easy, config, &EngineTls::presentDevice);
}

// By now the store may hold another certificate than when the transfer was set up. libcurl asks for a session to resume
// behind this.
CURLcode EngineTls::presentDevice(CURL* easy, void* context, void* config) noexcept {
    try {
        tls::CertificateDer presented;
        const CURLcode result = tls::setUpDeviceContext(easy, context, config, presented);
        if (result != CURLE_OK) return result;
        const auto request = Engine::getEngine()->lookupRequest(easy);
        if (!request) return CURLE_FAILED_INIT;
        stateOf(*request).tls->notePresented(easy, *request, presented);
        return CURLE_OK;
    } catch (...) {
        return CURLE_FAILED_INIT;
    }
}

void EngineTls::notePresented(CURL* easy, const Request& request, const tls::CertificateDer& certificate) {
    if (device.note(certificate)) trustFiles.startAnew();
    if (device.number() != stateOf(request).deviceNumber || mayMeetTlsProxy(request)) leaveSessionsAlone(easy);
}

void EngineTls::addVerification(CURL* easy, const RequestConfig& config) {
    if (!config.tls_verify) {
        setOption(easy, CURLOPT_SSL_VERIFYHOST, 0L);
        setOption(easy, CURLOPT_SSL_VERIFYPEER, 0L);
        tellDeviceApart(easy);
        return;
    }
    setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    setCaFile(easy, config.ca_file);
    setCaFolder(easy, config.ca_dir);
}

// libcurl from 8.12 on looks sessions up by where a relative name leads, to the same place before and after a change.
void EngineTls::setAuthorities(CURL* easy, CURLoption option, const std::string& name) {
    setOption(easy, option, name.c_str());
    if (name.front() != '/') leaveSessionsAlone(easy);
}

// Null is not libcurl's default: it means that no file is trusted.
void EngineTls::setCaFile(CURL* easy, const tl::optional<std::string>& file) {
    if (file && !file->empty()) {
        setAuthorities(easy, CURLOPT_CAINFO, trustFiles.nameOf("ca_file", *file));
    } else if (!file && certificate::ca_pem_exists("default")) {
        const std::string bundle = certificate::ca_path("default");
        setAuthorities(easy, CURLOPT_CAINFO, trustFiles.nameOf("the platform's CA bundle", bundle));
    } else {
        setOption(easy, CURLOPT_CAINFO, static_cast<char*>(nullptr));
    }
}

// Unchecked: not every TLS library has folders, and without them none is trusted anyway.
void EngineTls::setCaFolder(CURL* easy, const tl::optional<std::string>& folder) {
    if (folder && !folder->empty()) {
        setAuthorities(easy, CURLOPT_CAPATH, trustFiles.nameOfFolders(*folder));
    } else {
        curl_easy_setopt(easy, CURLOPT_CAPATH, static_cast<char*>(nullptr));
    }
}

// Without verification no file has a name that could tell the device's certificates apart, so this is one, of a folder
// that can not be. Unchecked, as above.
void EngineTls::tellDeviceApart(CURL* easy) const {
    if (device.number() == 0) return;
    curl_easy_setopt(easy, CURLOPT_CAPATH, fmt::format("/dev/null/{}", device.number()).c_str());
}

}  // namespace kel::http
