// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::StartsWith;

const std::string Untrusted = "failure 2: " + std::string(curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));

NginxServer::Options overTls(const std::string& directives = {}) {
    NginxServer::Options options;
    options.tls = true;
    options.directives = directives;
    return options;
}

class EngineTlsTest : public EngineTest {
 protected:
    EngineTlsTest() { startEngine(); }

    static RequestConfig to(const NginxServer& server) {
        RequestConfig config;
        config.url = server.tlsUrl("/status/200");
        return config;
    }

    // A connection that is open already would do without what the test is about.
    std::string outcomeOf(RequestConfig config) {
        config.reset_state = true;
        const auto made = run(config);
        made->outcome.awaitCount(1);
        return made->outcome.events().at(0);
    }

    NginxServer nginx{overTls()};
};

TEST_F(EngineTlsTest, TrustedAuthorityIsAccepted) {
    RequestConfig config = to(nginx);
    config.ca_file = TestCertificates::shared().caFile();
    EXPECT_EQ(outcomeOf(config), "end");
    config.url = "https://localhost:" + std::to_string(nginx.tlsPort()) + "/status/200";
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsTest, UnknownAuthorityIsRefusedWithAPlainText) {
    const LogCapture log("HttpClient", 1);
    EXPECT_EQ(outcomeOf(to(nginx)), Untrusted);
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, "Got unexpected Curl error code: 60")));
    // The log has the details that the text leaves out.
    EXPECT_TRUE(log.contains("': SSL certificate problem: "));
}

TEST_F(EngineTlsTest, OtherAuthorityIsRefused) {
    const TestCertificates others;
    RequestConfig config = to(nginx);
    config.ca_file = others.caFile();
    EXPECT_EQ(outcomeOf(config), Untrusted);
}

TEST_F(EngineTlsTest, EmptyAuthorityFileTrustsNobody) {
    RequestConfig config = to(nginx);
    config.ca_file = "";
    EXPECT_EQ(outcomeOf(config), Untrusted);
    config.ca_dir = "";
    EXPECT_EQ(outcomeOf(config), Untrusted);
}

TEST_F(EngineTlsTest, AuthorityInAFolderIsTrusted) {
    const std::string pem = readWholeFile(TestCertificates::shared().caFile());
    const std::unique_ptr<BIO, int (*)(BIO*)> memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                     BIO_free);
    const std::unique_ptr<X509, void (*)(X509*)> authority(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr),
                                                           X509_free);
    const TemporaryDirectory directory;
    writeWholeFile(directory.path(fmt::format("{:08x}.0", X509_subject_name_hash(authority.get()))), pem);
    RequestConfig config = to(nginx);
    config.ca_file = "";
    config.ca_dir = directory.path();
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsTest, AuthorityFileThatIsNotThereFails) {
    RequestConfig config = to(nginx);
    config.ca_file = "/nonexistent/ca.pem";
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 2: error setting certificate"));
}

TEST_F(EngineTlsTest, WithoutVerificationAnyCertificateIsAccepted) {
    RequestConfig config = to(nginx);
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "end");
    config.ca_file = "/nonexistent/ca.pem";
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsTest, CertificateOfAnotherHostIsRefused) {
    CertificateWish wish;
    wish.common_name = "other.example";
    wish.subject_alt_names = "DNS:other.example";
    const CertificateFiles files = TestCertificates::shared().issue("other", wish);
    NginxServer::Options options = overTls();
    options.certificate_file = files.certificate_file;
    options.key_file = files.key_file;
    const NginxServer other(options);
    RequestConfig config = to(other);
    config.ca_file = TestCertificates::shared().caFile();
    EXPECT_EQ(outcomeOf(config), Untrusted);
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsTest, OldServerIsRefused) {
    const NginxServer old(overTls("ssl_protocols TLSv1; ssl_ciphers ALL:@SECLEVEL=0;"));
    RequestConfig config = to(old);
    config.tls_verify = false;
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 2: "));
    config.min_tls_version = MinTlsVersion::tls1_2;
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 2: "));
}

TEST_F(EngineTlsTest, EveryFloorAcceptsAServerOfToday) {
    RequestConfig config = to(nginx);
    config.ca_file = TestCertificates::shared().caFile();
    for (const auto floor : {MinTlsVersion::tls1_0, MinTlsVersion::tls1_1, MinTlsVersion::tls1_2}) {
        config.min_tls_version = floor;
        EXPECT_EQ(outcomeOf(config), "end");
    }
}

TEST_F(EngineTlsTest, ServerWithoutTlsFailsWithAPlainText) {
    RequestConfig config;
    config.url = "https://127.0.0.1:" + std::to_string(nginx.port());
    EXPECT_EQ(outcomeOf(config), "failure 2: " + std::string(curl_easy_strerror(CURLE_SSL_CONNECT_ERROR)));
}

}  // namespace
}  // namespace kel::http::test
