// SPDX-License-Identifier: MIT
#include "kel-http/curl/Tls.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <array>
#include <string>

#include "certificate/certificate.h"
#include "kel-http/RequestConfig.h"
#include "kel-http/curl/TlsDevice.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"
#include "sec/secure_store.h"

namespace kel::http::tls {
namespace {

constexpr std::size_t der_bytes = CertificateDer::MostBytes;
using Der = std::array<unsigned char, der_bytes>;

// Key bytes do not stay behind on the stack, whatever happens to the connection.
struct KeyBuffer {
    ~KeyBuffer() { OPENSSL_cleanse(der.data(), der.size()); }

    Der der{};
};

// The context takes references of its own.
struct DeviceIdentity {
    // What d2i left in the queue would be reported by the next TLS call of this thread, whosever it is.
    ~DeviceIdentity() {
        addMicToCtxCleanup(certificate, key);
        ERR_clear_error();
    }

    X509* certificate = nullptr;
    EVP_PKEY* key = nullptr;
};

// Left to the logger to drop: a connection that can not be made is worth a line at any level.
CURLcode fail(CURLcode result, const char* function, const char* reason) {
    logging::getLogger("HttpClient", 0)->write(log_level::error, fmt::format("{}: {}", function, reason));
    return result;
}

bool isReadable(const tl::optional<std::string>& path) {
    return path && !path->empty() && access(path->c_str(), R_OK) == 0;
}

CURLcode loadCertificate(DeviceIdentity& identity, CertificateDer& certificate) {
    if (!readDeviceCertificate(certificate)) return fail(CURLE_FAILED_INIT, "setMicToCtx", "Failed Fetch the MIC");
    const unsigned char* cursor = certificate.bytes.data();
    identity.certificate = d2i_X509(nullptr, &cursor, der_bytes);
    if (identity.certificate != nullptr) return CURLE_OK;
    return fail(CURLE_FAILED_INIT, "setMicToCtx", "Failed to load MIC into an openssl X509 object");
}

CURLcode loadKey(DeviceIdentity& identity) {
    KeyBuffer buffer;
    unsigned int length = der_bytes;
    if (sec_get_priv_key(0, buffer.der.data(), &length) != 0) {
        return fail(CURLE_FAILED_INIT, "setMicToCtx", "Failed Fetch the PKEY");
    }
    const unsigned char* cursor = buffer.der.data();
    identity.key = d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &cursor, der_bytes);
    if (identity.key != nullptr) return CURLE_OK;
    return fail(CURLE_FAILED_INIT, "setMicToCtx", "Failed to load pkey into an openssl EVP_PKEY object");
}

CURLcode use(const DeviceIdentity& identity, SSL_CTX* context) {
    if (SSL_CTX_use_certificate(context, identity.certificate) != 1) {
        return fail(CURLE_FAILED_INIT, "setMicToCtx", " SSL_CTX_use_certificate failed..");
    }
    if (SSL_CTX_use_PrivateKey(context, identity.key) != 1) {
        return fail(CURLE_FAILED_INIT, "setMicToCtx", " SSL_CTX_use_PrivateKey failed..");
    }
    return CURLE_OK;
}

CURLcode presentDevice(void* sslctx, CertificateDer& certificate) {
    DeviceIdentity identity;
    CURLcode result = loadCertificate(identity, certificate);
    if (result == CURLE_OK) result = loadKey(identity);
    if (result == CURLE_OK) result = use(identity, static_cast<SSL_CTX*>(sslctx));
    return result;
}

using Verify = int (*)(int, X509_STORE_CTX*);

// OpenSSL would take null for "no verifier", which must not happen unnoticed.
Verify plainFunction(const RequestConfig::Verifier& verifier) {
    using VerifyWithoutThrowing = int (*)(int, X509_STORE_CTX*) noexcept;
    if (const auto* const function = verifier.target<VerifyWithoutThrowing>()) return *function;
    const auto* const function = verifier.target<Verify>();
    KO_ASSERT(function != nullptr);
    return *function;
}

// False: there is no memory. A verifier must not take that for a request without a text.
bool setVerifierData(SSL_CTX* context, const tl::optional<std::string>& data) {
    const int index = certificate::sslctx_data_index();
    OPENSSL_free(SSL_CTX_get_ex_data(context, index));
    char* const text = data ? OPENSSL_strdup(data->c_str()) : nullptr;
    const bool stored = SSL_CTX_set_ex_data(context, index, text) == 1;
    if (!stored) OPENSSL_free(text);
    return stored && (text != nullptr || !data);
}

CURLcode setUpVerification(CURL* curl, void* sslctx, void* config) {
    const auto& request = *static_cast<const RequestConfig*>(config);
    if (request.verifier) {
        const CURLcode result = setupVerifierCallback(curl, sslctx, config);
        if (result != CURLE_OK) return result;
    }
    return request.tls_partial_chain ? configurePartialChain(curl, sslctx, config) : CURLE_OK;
}

// Whether libcurl has loaded the request's own certificate. Files may have gone since; the device's would join it then.
bool isLoaded(const RequestConfig& config, void* sslctx) {
    if (!config.own_cert || !config.own_pkey || sslctx == nullptr) return false;
    return SSL_CTX_get0_certificate(static_cast<SSL_CTX*>(sslctx)) != nullptr;
}

CURLcode setUpContext(CURL* curl, void* sslctx, void* config) {
    const CURLcode result = setUpVerification(curl, sslctx, config);
    if (result != CURLE_OK) return result;
    const auto& request = *static_cast<const RequestConfig*>(config);
    if (isLoaded(request, sslctx) || hasOwnIdentityFiles(request)) return CURLE_OK;
    return setMicToCtx(curl, sslctx, config);
}

// No exception may pass through libcurl, whatever a secure store or a log throws.
template <typename Step>
CURLcode fenced(void* config, Step step) {
    try {
        if (config != nullptr) return step();
        return fail(CURLE_BAD_FUNCTION_ARGUMENT, "CURLcode kel::http::tls::setupSSLCTXCallback(CURL*, void*, void*)",
                    "Missing RequestConfig");
    } catch (...) {
        return CURLE_FAILED_INIT;
    }
}

}  // namespace

bool hasOwnIdentityFiles(const RequestConfig& config) {
    return isReadable(config.own_cert) && isReadable(config.own_pkey);
}

bool readDeviceCertificate(CertificateDer& certificate) {
    certificate.length = der_bytes;
    return sec_get_deviceCert(0, certificate.bytes.data(), &certificate.length) == 0;
}

CURLcode setupSSLCTXCallback(CURL* curl, void* sslctx, void* config) {
    return fenced(config, [&] { return setUpContext(curl, sslctx, config); });
}

CURLcode setUpDeviceContext(CURL* curl, void* sslctx, void* config, CertificateDer& presented) {
    return fenced(config, [&] {
        const CURLcode result = setUpVerification(curl, sslctx, config);
        if (result != CURLE_OK) return result;
        if (sslctx == nullptr) return setMicToCtx(curl, sslctx, config);
        return presentDevice(sslctx, presented);
    });
}

CURLcode setupDeviceSSLCTXCallback(CURL* curl, void* sslctx, void* config) {
    CertificateDer presented;
    return setUpDeviceContext(curl, sslctx, config, presented);
}

CURLcode setupVerifierCallback(CURL* /*curl*/, void* sslctx, void* config) {
    constexpr const char* name = "CURLcode kel::http::tls::setupVerifierCallback(CURL*, void*, void*)";
    if (sslctx == nullptr) return fail(CURLE_BAD_FUNCTION_ARGUMENT, name, "Missing SSL_CTX");
    if (config == nullptr) return fail(CURLE_BAD_FUNCTION_ARGUMENT, name, "Missing RequestConfig");
    auto* const context = static_cast<SSL_CTX*>(sslctx);
    const auto& request = *static_cast<const RequestConfig*>(config);

    try {
        if (!setVerifierData(context, request.verifier_data)) return CURLE_OUT_OF_MEMORY;
    } catch (const std::exception&) {
        return CURLE_OUT_OF_MEMORY;  // the platform may have none for the place of the text
    }
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, plainFunction(request.verifier));
    return CURLE_OK;
}

CURLcode configurePartialChain(CURL* /*curl*/, void* sslctx, void* /*config*/) {
    constexpr const char* name = "CURLcode kel::http::tls::configurePartialChain(CURL*, void*, void*)";
    if (sslctx == nullptr) return fail(CURLE_BAD_FUNCTION_ARGUMENT, name, "Missing SSL_CTX");
    X509_STORE* const store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(sslctx));
    if (store == nullptr) {
        return fail(CURLE_BAD_FUNCTION_ARGUMENT, name, "Cannot extract X509_STORE store from an SSL_CTX");
    }
    X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN);
    return CURLE_OK;
}

CURLcode setMicToCtx(CURL* /*curl*/, void* sslctx, void* config) {
    constexpr const char* name = "CURLcode kel::http::tls::setMicToCtx(CURL*, void*, void*)";
    if (sslctx == nullptr) return fail(CURLE_BAD_FUNCTION_ARGUMENT, name, "Missing SSL_CTX");
    if (config == nullptr) return fail(CURLE_BAD_FUNCTION_ARGUMENT, name, "Missing RequestConfig");
    CertificateDer certificate;
    return presentDevice(sslctx, certificate);
}

void addMicToCtxCleanup(X509* certificate, EVP_PKEY* key) {
    if (certificate != nullptr) X509_free(certificate);
    if (key != nullptr) EVP_PKEY_free(key);
}

}  // namespace kel::http::tls
