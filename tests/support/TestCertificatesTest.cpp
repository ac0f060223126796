// SPDX-License-Identifier: MIT
#include "support/TestCertificates.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdio>

#include "support/Files.h"

namespace kel::http::test {
namespace {

using Certificate = std::unique_ptr<X509, void (*)(X509*)>;

Certificate readCertificate(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
    return {PEM_read_X509(file.get(), nullptr, nullptr, nullptr), X509_free};
}

// The result of a verification against one trusted certificate.
int verify(const std::string& ca_file, const std::string& certificate_file, unsigned long flags = 0) {
    const std::unique_ptr<X509_STORE, void (*)(X509_STORE*)> store(X509_STORE_new(), X509_STORE_free);
    const Certificate ca = readCertificate(ca_file);
    X509_STORE_add_cert(store.get(), ca.get());
    const std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX*)> context(X509_STORE_CTX_new(), X509_STORE_CTX_free);
    const Certificate certificate = readCertificate(certificate_file);
    X509_STORE_set_flags(store.get(), flags);
    X509_STORE_CTX_init(context.get(), store.get(), certificate.get(), nullptr);
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
}

bool holds(const std::string& file, const std::string& part_file) {
    return readWholeFile(file).find(readWholeFile(part_file)) != std::string::npos;
}

TEST(TestCertificatesTest, ServerCertificateIsValidForThisMachine) {
    const TestCertificates& certificates = TestCertificates::shared();
    const std::string& file = certificates.server().certificate_file;
    EXPECT_EQ(verify(certificates.caFile(), file), X509_V_OK);
    const Certificate certificate = readCertificate(file);
    EXPECT_EQ(X509_check_ip_asc(certificate.get(), "127.0.0.1", 0), 1);
    EXPECT_EQ(X509_check_ip_asc(certificate.get(), "::1", 0), 1);
    EXPECT_EQ(X509_check_host(certificate.get(), "localhost", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_host(certificate.get(), "example.com", 0, 0, nullptr), 0);
}

TEST(TestCertificatesTest, OtherAuthorityIsNotTrusted) {
    const TestCertificates other;
    EXPECT_NE(verify(TestCertificates::shared().caFile(), other.server().certificate_file), X509_V_OK);
}

TEST(TestCertificatesTest, WishedValidityIsKept) {
    const TestCertificates certificates;
    CertificateWish wish;
    wish.valid_from_day = -3;
    wish.valid_to_day = -2;
    EXPECT_EQ(verify(certificates.caFile(), certificates.issue("old", wish).certificate_file),
              X509_V_ERR_CERT_HAS_EXPIRED);
    wish.valid_from_day = 2;
    wish.valid_to_day = 3;
    EXPECT_EQ(verify(certificates.caFile(), certificates.issue("new", wish).certificate_file),
              X509_V_ERR_CERT_NOT_YET_VALID);
}

TEST(TestCertificatesTest, CertificateThatSignsItselfHasNoAuthority) {
    CertificateWish wish;
    wish.issuer = Issuer::itself;
    const CertificateFiles files = TestCertificates::shared().issue("itself", wish);
    EXPECT_EQ(verify(TestCertificates::shared().caFile(), files.certificate_file),
              X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
    EXPECT_EQ(verify(files.certificate_file, files.certificate_file), X509_V_OK);
}

TEST(TestCertificatesTest, IntermediateStandsBetweenTheAuthorityAndItsOwn) {
    const TestCertificates& certificates = TestCertificates::shared();
    CertificateWish wish;
    wish.issuer = Issuer::intermediate;
    const std::string with_chain = certificates.issue("chain", wish).certificate_file;
    EXPECT_TRUE(holds(with_chain, certificates.intermediateFile()));
    wish.with_chain = false;
    const std::string alone = certificates.issue("no chain", wish).certificate_file;
    EXPECT_FALSE(holds(alone, certificates.intermediateFile()));
    EXPECT_EQ(verify(certificates.caFile(), alone), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
    EXPECT_EQ(verify(certificates.intermediateFile(), alone, X509_V_FLAG_PARTIAL_CHAIN), X509_V_OK);
    EXPECT_EQ(verify(certificates.caFile(), certificates.intermediateFile()), X509_V_OK);
}

TEST(TestCertificatesTest, DeviceHasItsCertificateAndAnRsaKeyThatMatchesIt) {
    const std::string& folder = TestCertificates::shared().device();
    const std::string der = readWholeFile(folder + "/device_cert.der");
    const std::string key_der = readWholeFile(folder + "/device_key.der");
    const auto* cursor = reinterpret_cast<const unsigned char*>(der.data());
    const Certificate certificate(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())), X509_free);
    cursor = reinterpret_cast<const unsigned char*>(key_der.data());
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(
        d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &cursor, static_cast<long>(key_der.size())), EVP_PKEY_free);
    ASSERT_TRUE(certificate);
    EXPECT_EQ(X509_check_private_key(certificate.get(), key.get()), 1);
    std::array<char, 64> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name.data(), 64);
    EXPECT_STREQ(name.data(), "test device");
}

}  // namespace
}  // namespace kel::http::test
