// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineTls.h"

#include <algorithm>
#include <stdexcept>

#include "certificate/certificate.h"
#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/Tls.h"
#include "kel-http/curl/TlsFiles.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

// Above libcurl's own floor: what is older is broken.
constexpr MinTlsVersion default_floor = MinTlsVersion::tls1_1;

// libcurl picks a connection from its pool, and a TLS session to resume, without regard to verifiers. A handshake that
// a lax verifier let pass must serve nobody else, and none that was made without it may serve a strict one.
bool needsOwnConnection(const RequestConfig& config) {
    return config.verifier || config.tls_partial_chain;
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
}

void addOwnConnection(CURL* easy) {
    setOption(easy, CURLOPT_FRESH_CONNECT, 1L);
    setOption(easy, CURLOPT_FORBID_REUSE, 1L);
    setOption(easy, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    // With HTTP/2 others would join the connection while it is in use.
    setOption(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
}

void addOwnIdentity(CURL* easy, const RequestConfig& config) {
    requireReadyKey(*config.own_pkey);
    setOption(easy, CURLOPT_SSLCERT, config.own_cert->c_str());
    setOption(easy, CURLOPT_SSLCERTTYPE, "PEM");
    setOption(easy, CURLOPT_SSLKEY, config.own_pkey->c_str());
    setOption(easy, CURLOPT_SSLKEYTYPE, "PEM");
    // Without a pass phrase OpenSSL asks for one, on the terminal or on standard input, and all transfers wait.
    setOption(easy, CURLOPT_KEYPASSWD, "");
}

// Null is not libcurl's default: it means that no file is trusted.
void setCaFile(CURL* easy, const tl::optional<std::string>& file, TrustFiles& files) {
    if (file && !file->empty()) {
        setOption(easy, CURLOPT_CAINFO, files.nameOf("ca_file", *file).c_str());
    } else if (!file && certificate::ca_pem_exists("default")) {
        const std::string bundle = certificate::ca_path("default");
        setOption(easy, CURLOPT_CAINFO, files.nameOf("the platform's CA bundle", bundle).c_str());
    } else {
        setOption(easy, CURLOPT_CAINFO, static_cast<char*>(nullptr));
    }
}

void setCaFolder(CURL* easy, const tl::optional<std::string>& folder) {
    if (folder && !folder->empty()) {
        requireRegularCertificates(*folder);
        setOption(easy, CURLOPT_CAPATH, folder->c_str());
        return;
    }
    // Unchecked: not every TLS library has folders, and without them none is trusted anyway.
    curl_easy_setopt(easy, CURLOPT_CAPATH, static_cast<char*>(nullptr));
}

void addVerification(CURL* easy, const RequestConfig& config, TrustFiles& files) {
    if (!config.tls_verify) {
        setOption(easy, CURLOPT_SSL_VERIFYHOST, 0L);
        setOption(easy, CURLOPT_SSL_VERIFYPEER, 0L);
        return;
    }
    setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    setCaFile(easy, config.ca_file, files);
    setCaFolder(easy, config.ca_dir);
}

}  // namespace

void EngineTls::noteResult(CURLcode result) {
    switch (result) {
        case CURLE_OUT_OF_MEMORY:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            lastFailure = clock();
            break;
        default:
            break;
    }
}

// libcurl keeps the certificates of a CA file for a day. What it has read while memory was short is not complete, and
// fails each handshake for as long: what was read before one failed is read anew.
void EngineTls::addCertificateCache([[maybe_unused]] CURL* easy) const {
#if LIBCURL_VERSION_NUM >= 0x075700
    if (!lastFailure) return;
    constexpr std::chrono::seconds a_day = std::chrono::hours(24);
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(clock() - *lastFailure);
    // Unchecked: not every TLS library has such a cache.
    curl_easy_setopt(easy, CURLOPT_CA_CACHE_TIMEOUT, static_cast<long>(std::min(age, a_day).count()));
#endif
}

void EngineTls::addTlsConfig(CURL* easy, Request& request) {
    RequestConfig& config = request.config;
    const bool alone = needsOwnConnection(config);
    if (config.own_cert) requireRegularFile("own_cert", *config.own_cert);
    if (config.own_pkey) requireRegularFile("own_pkey", *config.own_pkey);
    const bool has_files = tls::hasOwnIdentityFiles(config);
    setVersions(easy, config);
    // Decided here for all handshakes of the transfer: files may come and go before each of them.
    if (!has_files) setContextFunction(easy, config, &tls::setupDeviceSSLCTXCallback);
    if (has_files && alone) setContextFunction(easy, config, &tls::setupSSLCTXCallback);
    if (has_files) {
        writeLine(*logger, log_level::detail, "({}) Configuring own certificate for mTLS (cert={}; pkey={})",
                  request.id(), *config.own_cert, *config.own_pkey);
        addOwnIdentity(easy, config);
    }
    addVerification(easy, config, trustFiles);
    addCertificateCache(easy);
    if (alone) addOwnConnection(easy);
}

}  // namespace kel::http
