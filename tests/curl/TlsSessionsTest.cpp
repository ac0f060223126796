// SPDX-License-Identifier: MIT
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "kel-http/curl/DeviceCertificate.h"
#include "kel-http/curl/TlsProxy.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using ::testing::StartsWith;

const std::string RefusesTheServer = "failure 2: " + std::string(curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));

CertificateFiles identityOf(const std::string& name) {
    CertificateWish wish;
    wish.common_name = name;
    return TestCertificates::shared().issue(name, wish);
}

std::string deviceCalled(const std::string& name) {
    CertificateWish wish;
    wish.common_name = name;
    return TestCertificates::shared().issueDevice(name, wish);
}

// Another identity in the store than the one before.
class OtherDevice {
 public:
    OtherDevice()
        : host([](ko::host::Settings& settings) { settings.secure_store_directory = deviceCalled("other device"); }) {}

 private:
    const TestHost host;
};

// The authority under the name by which OpenSSL finds it in a folder.
class FolderOfAuthorities {
 public:
    explicit FolderOfAuthorities(const std::string& pem) { put(pem); }

    void put(const std::string& pem) const {
        writeWholeFile(folder.path("new"), pem);
        ASSERT_EQ(rename(folder.path("new").c_str(), file().c_str()), 0);
    }
    void remove() const { ASSERT_EQ(unlink(file().c_str()), 0); }
    std::string path() const { return folder.path(); }

 private:
    std::string file() const {
        const std::unique_ptr<FILE, int (*)(FILE*)> pem(std::fopen(TestCertificates::shared().caFile().c_str(), "r"),
                                                        &std::fclose);
        const std::unique_ptr<X509, void (*)(X509*)> authority(PEM_read_X509(pem.get(), nullptr, nullptr, nullptr),
                                                               &X509_free);
        std::array<char, 16> name{};
        std::snprintf(name.data(), name.size(), "%08lx.0", X509_subject_name_hash(authority.get()));
        return folder.path(name.data());
    }

    const TemporaryDirectory folder;
};

// A server that asks for the client's certificate. /who tells whether the connection began with a resumed session ("r")
// or not ("."), and whom the server takes the client for.
class TlsIdentityTest : public EngineTest {
 protected:
    explicit TlsIdentityTest(const std::string& directives) : nginx(asking(directives)) { startEngine(); }
    ~TlsIdentityTest() override { stopEngine(); }

    static NginxServer::Options asking(const std::string& directives) {
        NginxServer::Options options;
        options.tls = true;
        options.http2 = false;
        options.directives = "ssl_session_cache shared:who:1m; ssl_verify_client optional; ssl_client_certificate " +
                             TestCertificates::shared().caFile() +
                             "; location = /who { return 200 '$ssl_session_reused $ssl_client_s_dn'; }" + directives;
        return options;
    }

    RequestConfig asDevice() const {
        RequestConfig config;
        config.url = nginx.tlsUrl("/who");
        config.ca_file = TestCertificates::shared().caFile();
        return config;
    }
    RequestConfig as(const CertificateFiles& files) const {
        RequestConfig config = asDevice();
        config.own_cert = files.certificate_file;
        config.own_pkey = files.key_file;
        return config;
    }
    static std::string who(const RequestConfig& config) {
        const RecordingRequestPtr made = run(config);
        made->outcome.awaitCount(1);
        const std::string outcome = made->outcome.events().at(0);
        return outcome == "end" ? made->body() : outcome;
    }
    static void replace(const std::string& path, const std::string& source) {
        writeWholeFile(path + ".new", readWholeFile(source));
        ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
    }

    const TestHost host{withTestDevice};
    const NginxServer nginx;
    const TemporaryDirectory directory;
};

// Each reply ends its connection, so that nothing but sessions can be kept.
class TlsSessionsTest : public TlsIdentityTest, public testing::WithParamInterface<std::string> {
 protected:
    TlsSessionsTest() : TlsIdentityTest("keepalive_timeout 0; ssl_protocols " + GetParam() + ";") {}
};

INSTANTIATE_TEST_SUITE_P(Versions, TlsSessionsTest, testing::Values("TLSv1.2", "TLSv1.3"),
                         [](const auto& version) { return version.param == "TLSv1.2" ? "Tls12" : "Tls13"; });

TEST_P(TlsSessionsTest, SecondConnectionResumesTheSessionOfTheFirst) {
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    for (int i = 0; i < 5; ++i) EXPECT_EQ(who(asDevice()), "r CN=test device") << i;
}

TEST_P(TlsSessionsTest, RequestsWithoutCookiesHaveSessionsOfTheirOwn) {
    RequestConfig config = asDevice();
    config.cookie_jar = CookieJar::no_cookies;
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    EXPECT_EQ(who(config), ". CN=test device");
    EXPECT_EQ(who(config), "r CN=test device");
    EXPECT_EQ(who(asDevice()), "r CN=test device");
}

TEST_P(TlsSessionsTest, NextEngineBeginsWithoutSessions) {
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    stopEngine();
    startEngine();
    EXPECT_EQ(who(asDevice()), ". CN=test device");
}

// --- identities ---

TEST_P(TlsSessionsTest, TwoIdentitiesDoNotShareSessions) {
    const RequestConfig ann = as(identityOf("ann"));
    const RequestConfig ben = as(identityOf("ben"));
    EXPECT_EQ(who(ann), ". CN=ann");
    EXPECT_EQ(who(ben), ". CN=ben");
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    EXPECT_EQ(who(ann), "r CN=ann");
    EXPECT_EQ(who(ben), "r CN=ben");
    EXPECT_EQ(who(asDevice()), "r CN=test device");
}

TEST_P(TlsSessionsTest, ReplacedIdentityResumesNothing) {
    const CertificateFiles ann = identityOf("ann");
    const CertificateFiles ben = identityOf("ben");
    const RequestConfig config = as({directory.path("cert.pem"), directory.path("key.pem")});
    for (int i = 0; i < 2; ++i) {
        for (const auto& [files, name] : {std::pair(ann, "ann"), std::pair(ben, "ben")}) {
            replace(*config.own_cert, files.certificate_file);
            replace(*config.own_pkey, files.key_file);
            EXPECT_EQ(who(config), std::string(". CN=") + name);
            EXPECT_EQ(who(config), std::string("r CN=") + name);
        }
    }
}

TEST_P(TlsSessionsTest, KeyThatDoesNotBelongToTheCertificateFindsNoSession) {
    const CertificateFiles ann = identityOf("ann");
    EXPECT_EQ(who(as(ann)), ". CN=ann");
    EXPECT_THAT(who(as({ann.certificate_file, identityOf("ben").key_file})), StartsWith("failure 2: "));
    EXPECT_EQ(who(as(ann)), "r CN=ann");
}

TEST_P(TlsSessionsTest, OtherDeviceResumesNothing) {
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    for (int i = 0; i < 2; ++i) {
        const OtherDevice other;
        EXPECT_EQ(who(asDevice()), ". CN=other device");
        EXPECT_EQ(who(asDevice()), "r CN=other device");
    }
    EXPECT_EQ(who(asDevice()), ". CN=test device");
}

// Set up as one device, and another one by the time of the handshake.
TEST_P(TlsSessionsTest, DeviceThatChangesDuringARequestResumesNothing) {
    RequestConfig redirected = asDevice();
    redirected.url = server.url("/");
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    {
        const RecordingRequestPtr made = run(redirected);
        server.awaitRequests(1);
        const OtherDevice other;
        server.enqueue(Reply::redirect(nginx.tlsUrl("/who")));
        made->outcome.awaitCount(1);
        EXPECT_EQ(made->body(), ". CN=other device");
    }
    EXPECT_EQ(who(asDevice()), ". CN=test device");
}

// --- trust ---

TEST_P(TlsSessionsTest, FolderThatTrustsNobodyAnyMoreRefusesTheServer) {
    const FolderOfAuthorities folder(readWholeFile(TestCertificates::shared().caFile()));
    RequestConfig config = asDevice();
    config.ca_file = "";
    config.ca_dir = folder.path();
    EXPECT_EQ(who(config), ". CN=test device");
    EXPECT_EQ(who(config), "r CN=test device");
    folder.remove();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(who(config), RefusesTheServer) << i;
    folder.put(readWholeFile(TestCertificates::shared().caFile()));
    EXPECT_EQ(who(config), ". CN=test device");
    EXPECT_EQ(who(config), "r CN=test device");
}

// A name that begins elsewhere leads to the same place for libcurl, whatever happens to the file.
TEST_P(TlsSessionsTest, AuthoritiesWithARelativeNameResumeNothing) {
    RequestConfig config = asDevice();
    config.ca_file = std::filesystem::relative(TestCertificates::shared().caFile()).string();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(who(config), ". CN=test device");
}

// --- those that neither resume nor leave a session ---

TEST_P(TlsSessionsTest, FreshStateNeitherResumesNorLeavesASession) {
    RequestConfig fresh = asDevice();
    fresh.reset_state = true;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(who(fresh), ". CN=test device");
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    EXPECT_EQ(who(fresh), ". CN=test device");
}

TEST_P(TlsSessionsTest, RequestThatVerifiesNobodyNeitherResumesNorLeavesASession) {
    RequestConfig lax = asDevice();
    lax.tls_verify = false;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(who(lax), ". CN=test device");
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    EXPECT_EQ(who(lax), ". CN=test device");
}

class EngineWithItsOwnTls : public Engine {
 public:
    using Engine::Engine;
    ~EngineWithItsOwnTls() override { stop(); }

    void addTlsConfig(void* easy, std::shared_ptr<Request> request) override {
        Engine::addTlsConfig(easy, std::move(request));
    }
};

class EngineWithoutItsOwnTls : public Engine {
 public:
    using Engine::Engine;
    ~EngineWithoutItsOwnTls() override { stop(); }
};

TEST_P(TlsSessionsTest, DerivedEngineResumesUnlessItHasATlsSetUpOfItsOwn) {
    const Engine::CallbackHandler at_once = [](const std::function<void()>& completion) { completion(); };
    stopEngine();
    useEngine(std::make_unique<EngineWithItsOwnTls>(at_once));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(who(asDevice()), ". CN=test device");
    stopEngine();
    useEngine(std::make_unique<EngineWithoutItsOwnTls>(at_once));
    EXPECT_EQ(who(asDevice()), ". CN=test device");
    EXPECT_EQ(who(asDevice()), "r CN=test device");
}

// --- connections that stay open ---

class TlsConnectionsTest : public TlsIdentityTest {
 protected:
    TlsConnectionsTest() : TlsIdentityTest("ssl_session_tickets off; add_header X-Connection $connection always;") {}
};

TEST_F(TlsConnectionsTest, ReplacedIdentityIsPresented) {
    const CertificateFiles ann = identityOf("ann");
    const CertificateFiles ben = identityOf("ben");
    const RequestConfig config = as({directory.path("cert.pem"), directory.path("key.pem")});
    for (const auto& [files, name] : {std::pair(ann, "ann"), std::pair(ben, "ben"), std::pair(ann, "ann")}) {
        replace(*config.own_cert, files.certificate_file);
        replace(*config.own_pkey, files.key_file);
        EXPECT_EQ(who(config), std::string(". CN=") + name);
    }
}

TEST_F(TlsConnectionsTest, OtherDeviceIsPresented) {
    for (const bool verify : {true, false}) {
        RequestConfig config = asDevice();
        config.tls_verify = verify;
        EXPECT_EQ(who(config), ". CN=test device");
        {
            const OtherDevice other;
            EXPECT_EQ(who(config), ". CN=other device");
        }
        EXPECT_EQ(who(config), ". CN=test device");
    }
}

TEST_F(TlsConnectionsTest, FolderThatTrustsNobodyAnyMoreRefusesTheServer) {
    const FolderOfAuthorities folder(readWholeFile(TestCertificates::shared().caFile()));
    RequestConfig config = asDevice();
    config.ca_file = "";
    config.ca_dir = ":" + folder.path() + ":";
    EXPECT_EQ(who(config), ". CN=test device");
    folder.put(readWholeFile(TestCertificates().caFile()));
    EXPECT_EQ(who(config), RefusesTheServer);
}

// --- which device it is ---

tls::CertificateDer der(unsigned char content) {
    tls::CertificateDer made;
    made.length = 3;
    made.bytes = {1, 2, content};
    return made;
}

TEST(DeviceCertificateTest, AnotherCertificateHasAnotherNumberEvenIfItWasThereBefore) {
    DeviceCertificate device;
    EXPECT_FALSE(device.note(der(1)));
    const auto first = device.number();
    EXPECT_FALSE(device.note(der(1)));
    EXPECT_EQ(device.number(), first);
    EXPECT_TRUE(device.note(der(2)));
    const auto second = device.number();
    EXPECT_NE(second, first);
    EXPECT_TRUE(device.note(der(1)));
    EXPECT_NE(device.number(), first);
    EXPECT_NE(device.number(), second);
}

TEST(DeviceCertificateTest, StoreIsNotAskedBeforeTheFirstHandshake) {
    DeviceCertificate device;
    const TestHost host{withTestDevice};
    EXPECT_FALSE(device.look());
    device.note(der(1));
    EXPECT_TRUE(device.look());
    EXPECT_FALSE(device.look());
}

TEST(DeviceCertificateTest, StoreThatFailsHasNotChanged) {
    DeviceCertificate device;
    device.note(der(1));
    const TestHost host([](ko::host::Settings& settings) { settings.secure_store_directory = "/nonexistent"; });
    EXPECT_FALSE(device.look());
    EXPECT_FALSE(device.note(der(1)));
}

// --- proxies ---

class TlsProxyTest : public testing::Test {
 protected:
    ~TlsProxyTest() override { unsetenv("ALL_PROXY"); }

    static bool mayMeet(const tl::optional<std::string>& proxy) {
        RecordingRequest request;
        request.currentProxy = proxy;
        return mayMeetTlsProxy(request);
    }
};

TEST_F(TlsProxyTest, ProxyOfTheRequestCounts) {
    EXPECT_FALSE(mayMeet(tl::nullopt));
    EXPECT_FALSE(mayMeet(std::string()));
    EXPECT_FALSE(mayMeet(std::string("http://proxy:80")));
    EXPECT_TRUE(mayMeet(std::string("https://proxy:80")));
    EXPECT_TRUE(mayMeet(std::string("HTTPS://proxy")));
}

TEST_F(TlsProxyTest, ProxyOfTheEnvironmentCounts) {
    setenv("ALL_PROXY", "http://proxy", 1);
    EXPECT_FALSE(mayMeet(tl::nullopt));
    setenv("ALL_PROXY", "Https://proxy", 1);
    EXPECT_TRUE(mayMeet(tl::nullopt));
    EXPECT_TRUE(mayMeet(std::string("http://proxy:80")));
}

}  // namespace
}  // namespace kel::http::test
