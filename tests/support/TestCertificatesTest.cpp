// SPDX-License-Identifier: MIT
#include "support/TestCertificates.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <cstdio>

namespace kel::http::test {
namespace {

using Certificate = std::unique_ptr<X509, void (*)(X509*)>;

Certificate readCertificate(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
    return {PEM_read_X509(file.get(), nullptr, nullptr, nullptr), X509_free};
}

// The result of a verification against one trusted authority.
int verify(const std::string& ca_file, const std::string& certificate_file) {
    const std::unique_ptr<X509_STORE, void (*)(X509_STORE*)> store(X509_STORE_new(), X509_STORE_free);
    const Certificate ca = readCertificate(ca_file);
    X509_STORE_add_cert(store.get(), ca.get());
    const std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX*)> context(X509_STORE_CTX_new(), X509_STORE_CTX_free);
    const Certificate certificate = readCertificate(certificate_file);
    X509_STORE_CTX_init(context.get(), store.get(), certificate.get(), nullptr);
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
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
}

}  // namespace
}  // namespace kel::http::test
