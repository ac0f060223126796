// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineTls.h"

#include <stdexcept>

#include "certificate/certificate.h"
#include "kel-http/curl/Tls.h"
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

const char* pathOrNull(const std::string& path) {
    return path.empty() ? nullptr : path.c_str();
}

void addOwnConnection(CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    // With HTTP/2 others would join the connection while it is in use.
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
}

void addOwnIdentity(CURL* easy, const RequestConfig& config) {
    curl_easy_setopt(easy, CURLOPT_SSLCERT, config.own_cert->c_str());
    curl_easy_setopt(easy, CURLOPT_SSLCERTTYPE, "PEM");
    curl_easy_setopt(easy, CURLOPT_SSLKEY, config.own_pkey->c_str());
    curl_easy_setopt(easy, CURLOPT_SSLKEYTYPE, "PEM");
}

// Null is not libcurl's default: it means that no file is trusted.
void setCaFile(CURL* easy, const tl::optional<std::string>& file) {
    if (file) {
        curl_easy_setopt(easy, CURLOPT_CAINFO, pathOrNull(*file));
    } else if (certificate::ca_pem_exists("default")) {
        curl_easy_setopt(easy, CURLOPT_CAINFO, certificate::ca_path("default").c_str());
    } else {
        curl_easy_setopt(easy, CURLOPT_CAINFO, static_cast<char*>(nullptr));
    }
}

void addVerification(CURL* easy, const RequestConfig& config) {
    if (!config.tls_verify) {
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
        return;
    }
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    setCaFile(easy, config.ca_file);
    curl_easy_setopt(easy, CURLOPT_CAPATH, config.ca_dir ? pathOrNull(*config.ca_dir) : nullptr);
}

}  // namespace

void EngineTls::addTlsConfig(CURL* easy, Request& request) const {
    RequestConfig& config = request.config;
    const bool alone = needsOwnConnection(config);
    const bool has_files = tls::hasOwnIdentityFiles(config);
    curl_easy_setopt(easy, CURLOPT_SSLVERSION, curlTlsVersions(config));
    if (alone || !has_files) {
        curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, &config);
        const CURLcode result = curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, &tls::setupSSLCTXCallback);
        // Not without its verifier.
        if (alone && result != CURLE_OK) throw std::runtime_error("libcurl was built without OpenSSL");
    }
    if (has_files) {
        writeLine(*logger, log_level::detail, "({}) Configuring own certificate for mTLS (cert={}; pkey={})",
                  request.id(), *config.own_cert, *config.own_pkey);
        addOwnIdentity(easy, config);
    }
    addVerification(easy, config);
    if (alone) addOwnConnection(easy);
}

}  // namespace kel::http
