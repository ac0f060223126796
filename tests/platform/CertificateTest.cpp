// SPDX-License-Identifier: MIT
#include "certificate/certificate.h"

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "ConfiguredHost.h"
#include "ko/host.h"

namespace {

class CertificateTest : public ConfiguredHost {
 protected:
    TemporaryFolder folder;
};

TEST_F(CertificateTest, BundleIsFoundByItsName) {
    folder.write("bundle.pem", "not looked at");
    settings.ca_bundles = {{"default", folder.file("bundle.pem")}, {"other", folder.file("missing.pem")}};
    ko::host::configure(settings);
    EXPECT_TRUE(certificate::ca_pem_exists("default"));
    EXPECT_EQ(folder.file("bundle.pem"), certificate::ca_path("default"));
}

TEST_F(CertificateTest, MissingBundleHasAPathButDoesNotExist) {
    settings.ca_bundles = {{"default", folder.file("missing.pem")}};
    ko::host::configure(settings);
    EXPECT_FALSE(certificate::ca_pem_exists("default"));
    EXPECT_EQ(folder.file("missing.pem"), certificate::ca_path("default"));
    folder.write("missing.pem", "there it is");
    EXPECT_TRUE(certificate::ca_pem_exists("default"));
}

TEST_F(CertificateTest, UnknownNameHasNoBundle) {
    settings.ca_bundles = {{"default", ""}};
    ko::host::configure(settings);
    EXPECT_FALSE(certificate::ca_pem_exists("unknown"));
    EXPECT_EQ("", certificate::ca_path("unknown"));
    EXPECT_FALSE(certificate::ca_pem_exists("default"));
}

TEST_F(CertificateTest, SystemsBundleIsTheDefault) {
    EXPECT_EQ("/etc/ssl/certs/ca-certificates.crt", ko::host::Settings().ca_bundles.at("default"));
}

// Whether the text is freed is for the leak checker to tell.
TEST_F(CertificateTest, ContextsOwnATextUnderTheIndex) {
    const int index = certificate::sslctx_data_index();
    EXPECT_EQ(index, certificate::sslctx_data_index());
    EXPECT_NE(0, index);  // OpenSSL's own "application data", which others may use
    struct Release {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    const std::unique_ptr<SSL_CTX, Release> context(SSL_CTX_new(TLS_client_method()));
    char* const text = OPENSSL_strdup("verifier data");
    EXPECT_EQ(nullptr, SSL_CTX_get_ex_data(context.get(), index));
    ASSERT_EQ(1, SSL_CTX_set_ex_data(context.get(), index, text));
    EXPECT_EQ(text, SSL_CTX_get_ex_data(context.get(), index));
}

}  // namespace
