// SPDX-License-Identifier: MIT
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "fixture/TestDevice.h"
#include "fixture/Verifiers.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/OpensslServer.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;

// A process that asks access(2) as nobody while this lives, where it is root's. All else it does with the rights it has.
class AskingAsNobody {
 public:
    AskingAsNobody() {
        if (is_root_ && setreuid(Nobody, uid_t(-1)) != 0) throw std::runtime_error("can not become nobody");
    }
    ~AskingAsNobody() {
        if (is_root_ && setreuid(0, uid_t(-1)) != 0) std::abort();
    }
    AskingAsNobody(const AskingAsNobody&) = delete;
    AskingAsNobody& operator=(const AskingAsNobody&) = delete;

 private:
    static constexpr uid_t Nobody = 65534;
    const bool is_root_ = getuid() == 0;
};

// Servers that say who is there: /who is the subject of the client's certificate.
NginxServer::Options asking(const std::string& directives) {
    NginxServer::Options options;
    options.tls = true;
    options.directives = directives + "location = /who { return 200 '$ssl_client_s_dn'; }";
    return options;
}

CertificateFiles issueUser() {
    CertificateWish wish;
    wish.common_name = "test user";
    return TestCertificates::shared().issue("user", wish);
}

void withDevelopmentDevice(ko::host::Settings& settings) {
    settings.secure_store_directory.clear();
}

void withoutDevice(ko::host::Settings& settings) {
    settings.secure_store_directory = "/nonexistent";
}

class ClientTlsIdentityTest : public ClientTest {
 protected:
    RequestConfig to(const std::string& url) const {
        RequestConfig config;
        config.url = url;
        config.ca_file = TestCertificates::shared().caFile();
        // Else the first request's connection would speak for all.
        config.reset_state = true;
        return config;
    }
    RequestConfig who() const { return to(nginx.tlsUrl("/who")); }
    RequestConfig withFiles(const CertificateFiles& files) const {
        RequestConfig config = who();
        config.own_cert = files.certificate_file;
        config.own_pkey = files.key_file;
        return config;
    }

    std::string bodyOf(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        return outcome.response ? outcome.response->body : "error: " + outcome.error->message;
    }
    int statusOf(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        return outcome.response ? outcome.response->status : 0;
    }
    ErrorData errorOf(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        if (outcome.error) return *outcome.error;
        ADD_FAILURE() << "a response: " << outcome.response->status;
        return {};
    }

    const TestHost host{withTestDevice};
    const NginxServer nginx{asking("ssl_verify_client optional_no_ca;")};
    const CertificateFiles user = issueUser();
};

TEST_F(ClientTlsIdentityTest, DeviceIsPresentedUnlessTheRequestHasFiles) {
    EXPECT_EQ(bodyOf(who()), "CN=test device");
    EXPECT_EQ(bodyOf(withFiles(user)), "CN=test user");
    EXPECT_EQ(bodyOf(who()), "CN=test device");
}

TEST_F(ClientTlsIdentityTest, PipeInThePlaceOfAFileIsNamedInTheError) {
    const TemporaryDirectory directory;
    const std::string pipe = directory.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    RequestConfig config = withFiles(user);
    config.own_pkey = pipe;
    EXPECT_EQ(errorOf(config).message, "own_pkey: '" + pipe + "' is no regular file: name a PEM file");
    EXPECT_EQ(bodyOf(withFiles(user)), "CN=test user");
}

TEST_F(ClientTlsIdentityTest, ConnectionOfOneIdentityDoesNotServeTheOther) {
    RequestConfig device = who();
    RequestConfig files = withFiles(user);
    device.reset_state = false;
    files.reset_state = false;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(bodyOf(device), "CN=test device");
        EXPECT_EQ(bodyOf(files), "CN=test user");
    }
}

TEST_F(ClientTlsIdentityTest, ManyAtOncePresentWhatIsTheirs) {
    std::vector<Client::RequestId> devices;
    std::vector<Client::RequestId> files;
    for (int i = 0; i < 10; ++i) {
        devices.push_back(start(who()));
        files.push_back(start(withFiles(user)));
    }
    for (const auto id : devices) EXPECT_EQ(recorder.await(id).response.value().body, "CN=test device");
    for (const auto id : files) EXPECT_EQ(recorder.await(id).response.value().body, "CN=test user");
}

TEST_F(ClientTlsIdentityTest, VerifiersAndPartialChainsChangeNothingAboutIt) {
    const Verifiers verifiers;
    for (const bool partial_chain : {false, true}) {
        for (RequestConfig config : {who(), withFiles(user)}) {
            config.tls_partial_chain = partial_chain;
            config.verifier = Verifiers::neutral;
            EXPECT_EQ(bodyOf(config), config.own_cert ? "CN=test user" : "CN=test device");
            config.verifier = nullptr;
            EXPECT_EQ(bodyOf(config), config.own_cert ? "CN=test user" : "CN=test device");
        }
    }
    EXPECT_EQ(verifiers.handshakes(), 4U);
}

TEST_F(ClientTlsIdentityTest, ServerThatIsNotVerifiedIsToldTheSame) {
    RequestConfig config = who();
    config.tls_verify = false;
    EXPECT_EQ(bodyOf(config), "CN=test device");
    config = withFiles(user);
    config.tls_verify = false;
    EXPECT_EQ(bodyOf(config), "CN=test user");
}

TEST_F(ClientTlsIdentityTest, FilesThatAreNotAllThereGiveWayToTheDevice) {
    for (const auto& [certificate, key] :
         {std::pair<std::string, std::string>("/nonexistent/cert.pem", user.key_file),
          std::pair<std::string, std::string>(user.certificate_file, "/nonexistent/key.pem"),
          std::pair<std::string, std::string>(user.certificate_file, ""),
          std::pair<std::string, std::string>("", user.key_file), std::pair<std::string, std::string>("", "")}) {
        EXPECT_EQ(bodyOf(withFiles({certificate, key})), "CN=test device");
    }
    RequestConfig config = withFiles(user);
    config.own_pkey.reset();
    EXPECT_EQ(bodyOf(config), "CN=test device");
    config = withFiles(user);
    config.own_cert.reset();
    EXPECT_EQ(bodyOf(config), "CN=test device");
}

TEST_F(ClientTlsIdentityTest, FilesThatMustNotBeReadGiveWayToTheDevice) {
    const TemporaryDirectory folder;
    const CertificateFiles files{folder.path("cert.pem"), folder.path("key.pem")};
    writeWholeFile(files.certificate_file, readWholeFile(user.certificate_file));
    writeWholeFile(files.key_file, readWholeFile(user.key_file));
    chmod(folder.path().c_str(), 0755);
    const auto allow = [&files](mode_t certificate, mode_t key) {
        chmod(files.certificate_file.c_str(), certificate);
        chmod(files.key_file.c_str(), key);
    };
    const AskingAsNobody nobody;
    allow(0444, 0444);
    EXPECT_EQ(bodyOf(withFiles(files)), "CN=test user");
    allow(0000, 0444);
    EXPECT_EQ(bodyOf(withFiles(files)), "CN=test device");
    allow(0444, 0000);
    EXPECT_EQ(bodyOf(withFiles(files)), "CN=test device");
}

TEST_F(ClientTlsIdentityTest, FilesThatDoNotBelongTogetherFail) {
    const ErrorData told = errorOf(withFiles({user.certificate_file, TestCertificates::shared().server().key_file}));
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_NE(told.message, "");
    EXPECT_EQ(errorOf(withFiles({user.key_file, user.key_file})).failure, ClientFailure::Other);
    EXPECT_EQ(errorOf(withFiles({user.certificate_file, user.certificate_file})).failure, ClientFailure::Other);
    EXPECT_EQ(bodyOf(withFiles(user)), "CN=test user");
}

// --- the device's identity changes ---

TEST_F(ClientTlsIdentityTest, DevelopmentIdentityIsPresentedWithoutAStore) {
    const TestHost development(withDevelopmentDevice);
    EXPECT_EQ(bodyOf(who()), "CN=kel-http development device");
}

TEST_F(ClientTlsIdentityTest, StoreWithoutAnIdentityFailsWhoeverNeedsIt) {
    const TestHost empty(withoutDevice);
    const LogCapture log("HttpClient", 1);
    const ErrorData told = errorOf(who());
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_EQ(told.message, "error signaled by ssl ctx callback");
    EXPECT_EQ(log.count("setMicToCtx: Failed Fetch the MIC"), 1U);
    EXPECT_EQ(log.count("Got unexpected Curl error code: 2"), 1U);
    EXPECT_EQ(bodyOf(withFiles(user)), "CN=test user");
    EXPECT_EQ(log.count("setMicToCtx"), 1U);
}

TEST_F(ClientTlsIdentityTest, IdentityIsReadForEachHandshake) {
    const TemporaryDirectory store;
    const TestHost host_with_store(
        [&store](ko::host::Settings& settings) { settings.secure_store_directory = store.path(); });
    EXPECT_EQ(errorOf(who()).failure, ClientFailure::Other);
    for (const char* const file : {"/device_cert.der", "/device_key.der"}) {
        writeWholeFile(store.path() + file, readWholeFile(TestCertificates::shared().device() + file));
    }
    EXPECT_EQ(bodyOf(who()), "CN=test device");
    writeWholeFile(store.path("device_key.der"), "no key");
    EXPECT_EQ(errorOf(who()).message, "error signaled by ssl ctx callback");
}

// --- files that come and go between set-up and handshake ---

// The request begins at a server without TLS, which changes the files and leads on to one that asks for a certificate.
// Once as it is, and once with a verifier, which has a context of its own.
class ClientTlsIdentityChangeTest : public ClientTlsIdentityTest, public testing::WithParamInterface<bool> {
 protected:
    using Change = std::function<void()>;

    RequestConfig changing(const Change& change) {
        server.onRequest([this, change](const ReceivedRequest&) {
            change();
            return Reply::redirect(nginx.tlsUrl("/who"));
        });
        RequestConfig config = withFiles(files);
        config.url = server.url();
        if (GetParam()) config.verifier = Verifiers::neutral;
        return config;
    }
    // The same with a handshake before.
    RequestConfig changingBetweenHandshakes(const Change& change) {
        RequestConfig config = changing(change);
        config.url = first.tlsUrl("/away");
        return config;
    }
    void expectFailure(const RequestConfig& config) {
        EXPECT_EQ(errorOf(config).failure, ClientFailure::Other);
        EXPECT_EQ(nginx.accessLog().size(), 0U);
    }

    void addCertificate() const { writeWholeFile(files.certificate_file, readWholeFile(user.certificate_file)); }
    void addKey() const { writeWholeFile(files.key_file, readWholeFile(user.key_file)); }
    void addBoth() const {
        addCertificate();
        addKey();
    }
    void spoil(const std::string& file) const { writeWholeFile(file, "no PEM"); }
    void takeAway(const std::string& file) const { unlink(file.c_str()); }

    const TemporaryDirectory folder;
    const CertificateFiles files{folder.path("cert.pem"), folder.path("key.pem")};
    const NginxServer first{
        asking("ssl_verify_client optional_no_ca; location = /away { return 302 " + server.url() + "; }")};
    const Verifiers verifiers;
};

INSTANTIATE_TEST_SUITE_P(Verified, ClientTlsIdentityChangeTest, testing::Bool(),
                         [](const auto& verified) { return verified.param ? "ByAVerifier" : "Ordinarily"; });

TEST_P(ClientTlsIdentityChangeTest, FilesThatComeTooLateGiveWayToTheDevice) {
    EXPECT_EQ(bodyOf(changing([this] { addBoth(); })), "CN=test device");
    takeAway(files.certificate_file);
    EXPECT_EQ(bodyOf(changing([this] { addCertificate(); })), "CN=test device");
    takeAway(files.key_file);
    EXPECT_EQ(bodyOf(changing([this] { addKey(); })), "CN=test device");
    EXPECT_EQ(bodyOf(changing([] {})), "CN=test user");
}

TEST_P(ClientTlsIdentityChangeTest, FilesThatComeAfterTheFirstHandshakeGiveWayToTheDevice) {
    EXPECT_EQ(bodyOf(changingBetweenHandshakes([this] { addBoth(); })), "CN=test device");
    EXPECT_EQ(bodyOf(changingBetweenHandshakes([] {})), "CN=test user");
}

TEST_P(ClientTlsIdentityChangeTest, ConnectionOfTheDeviceDoesNotServeFilesThatCameTooLate) {
    RequestConfig config = changing([this] { addBoth(); });
    config.reset_state = false;
    EXPECT_EQ(bodyOf(config), "CN=test device");
    EXPECT_EQ(bodyOf(config), "CN=test user");
}

TEST_P(ClientTlsIdentityChangeTest, CertificateThatGoesFailsTheHandshake) {
    addBoth();
    expectFailure(changing([this] { takeAway(files.certificate_file); }));
    addBoth();
    expectFailure(changingBetweenHandshakes([this] { takeAway(files.certificate_file); }));
}

TEST_P(ClientTlsIdentityChangeTest, KeyThatGoesFailsTheHandshake) {
    addBoth();
    expectFailure(changing([this] { takeAway(files.key_file); }));
    addBoth();
    expectFailure(changingBetweenHandshakes([this] { takeAway(files.key_file); }));
}

TEST_P(ClientTlsIdentityChangeTest, FilesThatAreSpoiltFailTheHandshake) {
    for (const std::string& file : {files.certificate_file, files.key_file}) {
        addBoth();
        expectFailure(changing([this, file] { spoil(file); }));
        addBoth();
        expectFailure(changing([file] { writeWholeFile(file, ""); }));
    }
}

TEST_P(ClientTlsIdentityChangeTest, KeyOfAnotherCertificateFailsTheHandshake) {
    addBoth();
    const std::string other = readWholeFile(TestCertificates::shared().server().key_file);
    expectFailure(changing([this, other] { writeWholeFile(files.key_file, other); }));
}

// --- servers that require a certificate ---

TEST_F(ClientTlsIdentityTest, ServerOfTheAuthorityTakesThoseThatItHasSigned) {
    const NginxServer requiring(
        asking("ssl_verify_client on; ssl_client_certificate " + TestCertificates::shared().caFile() + ";"));
    RequestConfig config = to(requiring.tlsUrl("/who"));
    EXPECT_EQ(bodyOf(config), "CN=test device");
    config = withFiles(user);
    config.url = requiring.tlsUrl("/who");
    EXPECT_EQ(bodyOf(config), "CN=test user");
    const TestHost development(withDevelopmentDevice);
    EXPECT_EQ(statusOf(to(requiring.tlsUrl("/who"))), 400);
    EXPECT_EQ(bodyOf(config), "CN=test user");
}

TEST_F(ClientTlsIdentityTest, ServerEndsTheHandshakeWithAStranger) {
    for (const char* const version : {"-tls1_2", "-tls1_3"}) {
        const OpensslServer requiring(
            {version, "-Verify", "1", "-verify_return_error", "-CAfile", TestCertificates::shared().caFile()});
        const RequestConfig config = to(requiring.url());
        EXPECT_THAT(bodyOf(config), HasSubstr("test device"));
        const TestHost development(withDevelopmentDevice);
        const ErrorData told = errorOf(config);
        EXPECT_EQ(told.failure, ClientFailure::Other);
        EXPECT_NE(told.message, "");
    }
}

}  // namespace
}  // namespace kel::http::test
