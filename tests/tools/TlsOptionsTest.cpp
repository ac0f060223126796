// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <cstdio>
#include <memory>

#include "ToolProcess.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/OpensslServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;

NginxServer::Options overTls(const CertificateFiles& files, const std::string& directives) {
    NginxServer::Options options;
    options.tls = true;
    options.certificate_file = files.certificate_file;
    options.key_file = files.key_file;
    options.directives = directives;
    return options;
}

// Answers with the name in the client's certificate.
class ToolTlsTest : public testing::Test {
 protected:
    ToolResult get(const std::vector<std::string>& options) {
        std::vector<std::string> arguments = {"get", server.tlsUrl("/client"), "--ca-file",
                                              TestCertificates::shared().caFile()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

    NginxServer server{
        overTls(TestCertificates::shared().server(),
                "ssl_verify_client optional_no_ca; location = /client { return 200 $ssl_client_s_dn; }")};
    const TemporaryDirectory directory;
};

TEST_F(ToolTlsTest, OwnCertificateAndKeyArePresented) {
    CertificateWish wish;
    wish.common_name = "me";
    const CertificateFiles me = TestCertificates::shared().issue("me", wish);
    EXPECT_EQ(get({"--cert", me.certificate_file, "--key", me.key_file}).out, "CN=me");
    EXPECT_EQ(get({"--cert", me.certificate_file, "--key", me.key_file, "--partial-chain"}).out, "CN=me");
}

TEST_F(ToolTlsTest, CertificateOfTheDeviceIsPresented) {
    EXPECT_EQ(get({"--device-cert-dir", TestCertificates::shared().device()}).out, "CN=test device");
    EXPECT_EQ(get({"--device-cert-dir", TestCertificates::shared().device() + "/"}).out, "CN=test device");
}

TEST_F(ToolTlsTest, WithoutAnyTheCertificateIsOneForDevelopment) {
    EXPECT_EQ(get({}).out, "CN=kel-http development device");
}

TEST_F(ToolTlsTest, FilesThatCanNotBeReadAreNamedAndNothingIsSent) {
    const CertificateFiles& me = TestCertificates::shared().server();
    const std::string missing = directory.path("missing");
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--cert", missing, "--key", me.key_file},
                                               {"--cert", me.certificate_file, "--key", missing},
                                               {"--ca-dir", missing},
                                               {"--device-cert-dir", missing}}) {
        const ToolResult result = get(options);
        EXPECT_EQ(result.exit_code, 4) << options[0];
        EXPECT_THAT(result.err, HasSubstr(missing));
    }
    EXPECT_THAT(get({"--ca-dir", me.key_file}).err, HasSubstr("Not a directory"));
    EXPECT_THAT(server.accessLog(), testing::IsEmpty());
}

TEST_F(ToolTlsTest, DeviceWithoutItsKeyIsNamed) {
    writeWholeFile(directory.path("device_cert.der"), "a certificate");
    const ToolResult result = get({"--device-cert-dir", directory.path()});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr(directory.path("device_key.der")));
}

TEST_F(ToolTlsTest, OldestVersionIsHeldTo) {
    for (const char* const version : {"1.0", "1.1", "1.2"}) {
        EXPECT_EQ(get({"--min-tls", version, "--device-cert-dir", TestCertificates::shared().device()}).exit_code, 0)
            << version;
    }
    const OpensslServer old({"-tls1_1", "-cipher", "ALL:@SECLEVEL=0"});
    const ToolResult result =
        runTool({"get", old.url(), "--ca-file", TestCertificates::shared().caFile(), "--min-tls", "1.2", "--timeout",
                 "30s", "--device-cert-dir", TestCertificates::shared().device()});
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("1.2 or newer"));
}

TEST_F(ToolTlsTest, FolderOfAuthoritiesIsTrusted) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(TestCertificates::shared().caFile().c_str(), "r"), &std::fclose);
    const std::unique_ptr<X509, void (*)(X509*)> authority(PEM_read_X509(file.get(), nullptr, nullptr, nullptr),
                                                           &X509_free);
    std::array<char, 16> name{};
    std::snprintf(name.data(), name.size(), "%08lx.0", X509_subject_name_hash(authority.get()));
    writeWholeFile(directory.path(name.data()), readWholeFile(TestCertificates::shared().caFile()));
    const std::vector<std::string> arguments = {"get", server.tlsUrl("/redirect/0"), "--device-cert-dir",
                                                TestCertificates::shared().device()};
    EXPECT_EQ(runTool(arguments).exit_code, 3);
    std::vector<std::string> trusting = arguments;
    trusting.insert(trusting.end(), {"--ca-dir", directory.path()});
    EXPECT_EQ(runTool(trusting).out, "arrived");
}

TEST(ToolPartialChainTest, TrustedIntermediateIsEnough) {
    CertificateWish wish;
    wish.issuer = Issuer::intermediate;
    wish.with_chain = false;
    NginxServer server(overTls(TestCertificates::shared().issue("behind-an-intermediate", wish), ""));
    EXPECT_EQ(runTool({"get", server.tlsUrl("/redirect/0"), "--partial-chain", "--ca-file",
                       TestCertificates::shared().intermediateFile(), "--device-cert-dir",
                       TestCertificates::shared().device()})
                  .out,
              "arrived");
}

}  // namespace
}  // namespace kel::http::test
