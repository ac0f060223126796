// SPDX-License-Identifier: MIT
#include "FloorIdentity.h"

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <array>
#include <memory>

#include "sec/secure_store.h"

namespace kel::http::bench {

CURLcode presentDeviceIdentity(CURL* /*easy*/, void* context, void* /*data*/) {
    std::array<unsigned char, 4096> der{};
    unsigned int length = der.size();
    if (sec_get_deviceCert(0, der.data(), &length) != 0) return CURLE_FAILED_INIT;
    const unsigned char* cursor = der.data();
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(d2i_X509(nullptr, &cursor, static_cast<long>(length)),
                                                                  &X509_free);

    length = der.size();
    if (sec_get_priv_key(0, der.data(), &length) != 0) return CURLE_FAILED_INIT;
    cursor = der.data();
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &cursor, static_cast<long>(length)), &EVP_PKEY_free);

    auto* const tls = static_cast<SSL_CTX*>(context);
    const bool used =
        SSL_CTX_use_certificate(tls, certificate.get()) == 1 && SSL_CTX_use_PrivateKey(tls, key.get()) == 1;
    return used ? CURLE_OK : CURLE_FAILED_INIT;
}

}  // namespace kel::http::bench
