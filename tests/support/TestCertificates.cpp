// SPDX-License-Identifier: MIT
#include "TestCertificates.h"

#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace kel::http::test {

namespace {

void require(bool succeeded) {
    if (succeeded) return;
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    throw std::runtime_error(text.data());
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION*)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()), X509_EXTENSION_free);
    require(extension != nullptr);
    require(X509_add_ext(certificate, extension.get(), -1) == 1);
}

void setSerialNumber(X509* certificate) {
    std::array<unsigned char, 8> bytes{};
    require(RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1);
    const std::unique_ptr<BIGNUM, void (*)(BIGNUM*)> number(
        BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), BN_free);
    require(number != nullptr);
    require(BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr);
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openForWriting(const std::string& path) {
    File file(std::fopen(path.c_str(), "w"), std::fclose);
    if (!file) throw std::runtime_error("can not write " + path);
    return file;
}

void writeCertificate(const std::string& path, X509* certificate) {
    require(PEM_write_X509(openForWriting(path).get(), certificate) == 1);
}

void writeKey(const std::string& path, EVP_PKEY* key) {
    require(PEM_write_PrivateKey(openForWriting(path).get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
}

}  // namespace

TestCertificates::TestCertificates()
    : ca_key_(makeKey()),
      ca_certificate_(makeCertificate({"kel test authority", {}, -1, 1}, ca_key_.get())),
      ca_file_(directory_.path("ca.pem")) {
    X509* const ca = ca_certificate_.get();
    require(X509_set_issuer_name(ca, X509_get_subject_name(ca)) == 1);
    addExtension(ca, ca, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(ca, ca, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(ca, ca, NID_subject_key_identifier, "hash");
    require(X509_sign(ca, ca_key_.get(), EVP_sha256()) != 0);
    writeCertificate(ca_file_, ca);
    server_ = issue("server", CertificateWish());
}

const TestCertificates& TestCertificates::shared() {
    static const TestCertificates certificates;
    return certificates;
}

CertificateFiles TestCertificates::issue(const std::string& name, const CertificateWish& wish) const {
    const Key key = makeKey();
    const Certificate certificate = makeCertificate(wish, key.get());
    X509* const ca = ca_certificate_.get();
    require(X509_set_issuer_name(certificate.get(), X509_get_subject_name(ca)) == 1);
    addExtension(certificate.get(), ca, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate.get(), ca, NID_ext_key_usage, "serverAuth,clientAuth");
    addExtension(certificate.get(), ca, NID_authority_key_identifier, "keyid");
    if (!wish.subject_alt_names.empty()) {
        addExtension(certificate.get(), ca, NID_subject_alt_name, wish.subject_alt_names);
    }
    require(X509_sign(certificate.get(), ca_key_.get(), EVP_sha256()) != 0);

    CertificateFiles files{directory_.path(name + ".pem"), directory_.path(name + ".key")};
    writeCertificate(files.certificate_file, certificate.get());
    writeKey(files.key_file, key.get());
    return files;
}

TestCertificates::Key TestCertificates::makeKey() {
    const std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)> context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr),
                                                                         EVP_PKEY_CTX_free);
    require(context != nullptr);
    require(EVP_PKEY_keygen_init(context.get()) == 1);
    require(EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1) == 1);
    require(EVP_PKEY_CTX_set_ec_param_enc(context.get(), OPENSSL_EC_NAMED_CURVE) == 1);
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_keygen(context.get(), &key) == 1);
    return {key, EVP_PKEY_free};
}

// Without issuer, extensions and signature.
TestCertificates::Certificate TestCertificates::makeCertificate(const CertificateWish& wish, EVP_PKEY* key) {
    Certificate certificate(X509_new(), X509_free);
    require(certificate != nullptr);
    require(X509_set_version(certificate.get(), 2) == 1);  // counted from 0
    setSerialNumber(certificate.get());
    require(X509_time_adj_ex(X509_getm_notBefore(certificate.get()), wish.valid_from_day, 0, nullptr) != nullptr);
    require(X509_time_adj_ex(X509_getm_notAfter(certificate.get()), wish.valid_to_day, 0, nullptr) != nullptr);
    require(X509_set_pubkey(certificate.get(), key) == 1);
    const std::string& name = wish.common_name;
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(name.data()),
                                       static_cast<int>(name.size()), -1, 0) == 1);
    return certificate;
}

}  // namespace kel::http::test
