// SPDX-License-Identifier: MIT
#include "development_identity.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <thread>

#include "ko/assert.h"

namespace ko {
namespace host {
namespace {

template <auto Release>
struct ReleasedBy {
    template <typename T>
    void operator()(T* handle) const noexcept {
        Release(handle);
    }
};
using Key = std::unique_ptr<EVP_PKEY, ReleasedBy<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, ReleasedBy<EVP_PKEY_CTX_free>>;
using Certificate = std::unique_ptr<X509, ReleasedBy<X509_free>>;

constexpr int key_bits = 2048;
constexpr long day = 24L * 60 * 60;
constexpr unsigned char common_name[] = "kel-http development device";

Key make_key() {
    const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    EVP_PKEY* key = nullptr;
    const bool made = context && EVP_PKEY_keygen_init(context.get()) > 0 &&
                      EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), key_bits) > 0 &&
                      EVP_PKEY_keygen(context.get(), &key) > 0;
    KO_ASSERT(made);
    return Key(key);
}

bool name_and_sign(X509* certificate, EVP_PKEY* key) {
    X509_NAME* const name = X509_get_subject_name(certificate);
    return X509_set_version(certificate, 2) > 0 &&  // counted from 0: version 3
           ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1) > 0 &&
           // From yesterday on, for peers whose clock is a little behind.
           X509_gmtime_adj(X509_getm_notBefore(certificate), -day) != nullptr &&
           X509_gmtime_adj(X509_getm_notAfter(certificate), 3650 * day) != nullptr &&
           X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, common_name, -1, -1, 0) > 0 &&
           X509_set_issuer_name(certificate, name) > 0 && X509_set_pubkey(certificate, key) > 0 &&
           X509_sign(certificate, key, EVP_sha256()) > 0;
}

Certificate make_certificate(EVP_PKEY* key) {
    Certificate certificate(X509_new());
    const bool made = certificate && name_and_sign(certificate.get(), key);
    KO_ASSERT(made);
    return certificate;
}

template <typename Encoder, typename T>
std::vector<unsigned char> encode(Encoder to_der, T* object) {
    const int size = to_der(object, nullptr);
    KO_ASSERT(size > 0);
    std::vector<unsigned char> der(static_cast<std::size_t>(size));
    unsigned char* cursor = der.data();
    to_der(object, &cursor);
    return der;
}

// Never destroyed: handshakes may outlive main().
const Identity* make_identity() {
    const Key key = make_key();
    const Certificate certificate = make_certificate(key.get());
    return new Identity{encode(i2d_X509, certificate.get()), encode(i2d_PrivateKey, key.get())};
}

const Identity* made_with_enough_stack() {
    const Identity* identity = nullptr;
    std::thread([&identity] { identity = make_identity(); }).join();
    return identity;
}

}  // namespace

const Identity& development_identity() {
    static const Identity& identity = *made_with_enough_stack();
    return identity;
}

}  // namespace host
}  // namespace ko
