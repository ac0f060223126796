// SPDX-License-Identifier: MIT
#include "TestCertificates.h"

#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "Files.h"

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

void writeCertificates(const std::string& path, const std::vector<X509*>& certificates) {
    const File file = openForWriting(path);
    for (X509* const certificate : certificates) require(PEM_write_X509(file.get(), certificate) == 1);
}

void writeKey(const std::string& path, EVP_PKEY* key) {
    require(PEM_write_PrivateKey(openForWriting(path).get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
}

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;

Key makeEcKey() {
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

// Made by this machine's own openssl: a program that runs under an emulator would take seconds.
Key makeRsaKey(const std::string& path) {
    const std::string command = KEL_TEST_OPENSSL
                                " genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -outform DER -out '" +
                                path + "' 2>'" + path + ".log'";
    if (std::system(command.c_str()) != 0) throw std::runtime_error(command + ": " + readWholeFile(path + ".log"));
    Key key(d2i_PrivateKey_fp(File(std::fopen(path.c_str(), "r"), std::fclose).get(), nullptr), EVP_PKEY_free);
    require(key != nullptr);
    return key;
}

void signAsAuthority(X509* certificate, X509* issuer, EVP_PKEY* issuer_key) {
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1);
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, issuer, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
    require(X509_sign(certificate, issuer_key, EVP_sha256()) != 0);
}

}  // namespace

TestCertificates::TestCertificates()
    : ca_key_(makeEcKey()),
      ca_certificate_(makeCertificate({"kel test authority", {}, -1, 1}, ca_key_.get())),
      ca_file_(directory_.path("ca.pem")),
      intermediate_key_(makeEcKey()),
      intermediate_certificate_(makeCertificate({"kel test intermediate", {}, -1, 1}, intermediate_key_.get())),
      intermediate_file_(directory_.path("intermediate.pem")) {
    signAsAuthority(ca_certificate_.get(), ca_certificate_.get(), ca_key_.get());
    writeCertificates(ca_file_, {ca_certificate_.get()});
    signAsAuthority(intermediate_certificate_.get(), ca_certificate_.get(), ca_key_.get());
    writeCertificates(intermediate_file_, {intermediate_certificate_.get()});
    server_ = issue("server", CertificateWish());
}

const TestCertificates& TestCertificates::shared() {
    static const TestCertificates certificates;
    return certificates;
}

const std::string& TestCertificates::device() const {
    std::call_once(device_made_, [this] {
        CertificateWish wish;
        wish.common_name = "test device";
        device_ = issueDevice("device", wish);
    });
    return device_;
}

CertificateFiles TestCertificates::issue(const std::string& name, const CertificateWish& wish) const {
    const Key key = makeEcKey();
    const Certificate certificate = sign(wish, key.get());
    std::vector<X509*> chain{certificate.get()};
    if (wish.issuer == Issuer::intermediate && wish.with_chain) chain.push_back(intermediate_certificate_.get());

    CertificateFiles files{directory_.path(name + ".pem"), directory_.path(name + ".key")};
    writeCertificates(files.certificate_file, chain);
    writeKey(files.key_file, key.get());
    return files;
}

std::string TestCertificates::issueDevice(const std::string& name, const CertificateWish& wish) const {
    const std::string folder = directory_.path(name);
    std::filesystem::create_directory(folder);
    const Key key = makeRsaKey(folder + ".key");
    const Certificate certificate = sign(wish, key.get());
    require(i2d_X509_fp(openForWriting(folder + "/device_cert.der").get(), certificate.get()) == 1);
    require(i2d_PrivateKey_fp(openForWriting(folder + "/device_key.der").get(), key.get()) == 1);
    return folder;
}

TestCertificates::Certificate TestCertificates::sign(const CertificateWish& wish, EVP_PKEY* key) const {
    Certificate certificate = makeCertificate(wish, key);
    X509* issuer = ca_certificate_.get();
    EVP_PKEY* issuer_key = ca_key_.get();
    if (wish.issuer == Issuer::intermediate) {
        issuer = intermediate_certificate_.get();
        issuer_key = intermediate_key_.get();
    } else if (wish.issuer == Issuer::itself) {
        issuer = certificate.get();
        issuer_key = key;
    }
    require(X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer)) == 1);
    addExtension(certificate.get(), issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate.get(), issuer, NID_ext_key_usage, "serverAuth,clientAuth");
    addExtension(certificate.get(), issuer, NID_subject_key_identifier, "hash");
    addExtension(certificate.get(), issuer, NID_authority_key_identifier, "keyid");
    if (!wish.subject_alt_names.empty()) {
        addExtension(certificate.get(), issuer, NID_subject_alt_name, wish.subject_alt_names);
    }
    require(X509_sign(certificate.get(), issuer_key, EVP_sha256()) != 0);
    return certificate;
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
