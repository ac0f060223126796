// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "fixture/Verifiers.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/OpensslServer.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
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
    static RecordingRequestPtr fetch(RequestConfig config) {
        config.reset_state = true;
        const auto made = run(config);
        made->outcome.awaitCount(1);
        return made;
    }
    static std::string outcomeOf(const RequestConfig& config) { return fetch(config)->outcome.events().at(0); }
    static std::string bodyOf(const RequestConfig& config) { return fetch(config)->body(); }

    static RequestConfig with(RequestConfig::Verifier verifier, RequestConfig config) {
        config.verifier = std::move(verifier);
        return config;
    }

    static TestHost::Change bundle(const std::string& file) {
        return [file](ko::host::Settings& settings) { settings.ca_bundles["default"] = file; };
    }

    const TestHost host{withTestDevice};
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

TEST_F(EngineTlsTest, BundleOfTheHostIsTrusted) {
    {
        const TestHost trusting(bundle(TestCertificates::shared().caFile()));
        EXPECT_EQ(outcomeOf(to(nginx)), "end");
        RequestConfig config = to(nginx);
        config.ca_file = "";
        EXPECT_EQ(outcomeOf(config), Untrusted);
    }
    const TestHost without(bundle("/nonexistent/ca.pem"));
    EXPECT_EQ(outcomeOf(to(nginx)), Untrusted);
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

// --- versions ---

const std::string NoAgreement = "failure 2: " + std::string(curl_easy_strerror(CURLE_SSL_CONNECT_ERROR));

// This system's OpenSSL refuses versions below 1.2 whatever the floor is.
TEST_F(EngineTlsTest, ServerOfAnOldVersionAloneIsRefused) {
    for (const char* const version : {"-tls1", "-tls1_1"}) {
        const OpensslServer old({version, "-cipher", "ALL:@SECLEVEL=0"});
        RequestConfig config;
        config.url = old.url();
        config.tls_verify = false;
        EXPECT_EQ(outcomeOf(config), NoAgreement) << version;
        for (const auto floor : {MinTlsVersion::tls1_0, MinTlsVersion::tls1_1, MinTlsVersion::tls1_2}) {
            config.min_tls_version = floor;
            EXPECT_EQ(outcomeOf(config), NoAgreement) << version;
        }
    }
}

TEST_F(EngineTlsTest, ServerOfATodaysVersionAloneIsAcceptedWhateverTheFloor) {
    for (const auto& [argument, version] : {std::pair("-tls1_2", "TLSv1.2"), std::pair("-tls1_3", "TLSv1.3")}) {
        const OpensslServer single({argument});
        RequestConfig config;
        config.url = single.url();
        config.ca_file = TestCertificates::shared().caFile();
        EXPECT_THAT(bodyOf(config), HasSubstr(std::string("Protocol  : ") + version));
        EXPECT_THAT(bodyOf(with(Verifiers::neutral, config)), HasSubstr(std::string("Protocol  : ") + version));
        for (const auto floor : {MinTlsVersion::tls1_0, MinTlsVersion::tls1_1, MinTlsVersion::tls1_2}) {
            config.min_tls_version = floor;
            EXPECT_THAT(bodyOf(config), HasSubstr(std::string("Protocol  : ") + version));
        }
    }
}

TEST_F(EngineTlsTest, HighestVersionIsAgreedOnWithAndWithoutAVerifier) {
    const OpensslServer all({});
    RequestConfig config;
    config.url = all.url();
    config.ca_file = TestCertificates::shared().caFile();
    EXPECT_THAT(bodyOf(config), HasSubstr("Protocol  : TLSv1.3"));
    EXPECT_THAT(bodyOf(with(Verifiers::neutral, config)), HasSubstr("Protocol  : TLSv1.3"));
}

TEST_F(EngineTlsTest, ServerWithoutTlsFailsWithAPlainText) {
    RequestConfig config;
    config.url = "https://127.0.0.1:" + std::to_string(nginx.port());
    EXPECT_EQ(outcomeOf(config), "failure 2: " + std::string(curl_easy_strerror(CURLE_SSL_CONNECT_ERROR)));
}

// --- verifiers ---

TEST_F(EngineTlsTest, VerifierIsGivenItsText) {
    const Verifiers verifiers;
    RequestConfig config = with(Verifiers::lax, to(nginx));
    config.verifier_data = "text for the verifier";
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_THAT(verifiers.texts().events(), Each("text for the verifier"));
    EXPECT_EQ(verifiers.handshakes(), 1U);
}

TEST_F(EngineTlsTest, VerifierWithoutATextIsGivenNone) {
    const Verifiers verifiers;
    EXPECT_EQ(outcomeOf(with(Verifiers::lax, to(nginx))), "end");
    EXPECT_THAT(verifiers.texts().events(), Each("null"));
    EXPECT_EQ(verifiers.handshakes(), 1U);
}

TEST_F(EngineTlsTest, EveryVerifierIsGivenTheTextOfItsOwnRequest) {
    const Verifiers verifiers;
    std::vector<RecordingRequestPtr> requests;
    for (int i = 0; i < 8; ++i) {
        RequestConfig config = with(Verifiers::lax, to(nginx));
        config.verifier_data = std::to_string(i);
        requests.push_back(run(config));
    }
    for (const auto& one : requests) one->outcome.await("end");
    for (int i = 0; i < 8; ++i) EXPECT_GT(verifiers.texts().count(std::to_string(i)), 0U);
    EXPECT_EQ(verifiers.handshakes(), 8U);
}

TEST_F(EngineTlsTest, RefusingVerifierOverrulesTheAuthority) {
    RequestConfig config = with(Verifiers::refusing, to(nginx));
    config.ca_file = TestCertificates::shared().caFile();
    EXPECT_EQ(outcomeOf(config), Untrusted);
    config.verifier = Verifiers::neutral;
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsTest, WithoutVerificationTheVerifierDecidesAlone) {
    RequestConfig config = to(nginx);
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(with(Verifiers::refusing, config)), Untrusted);
    EXPECT_EQ(outcomeOf(with(Verifiers::neutral, config)), Untrusted);
    EXPECT_EQ(outcomeOf(with(Verifiers::lax, config)), "end");
    EXPECT_EQ(outcomeOf(with(Verifiers::careless, config)), "end");
}

// libcurl reads OpenSSL's finding once more after the handshake.
TEST_F(EngineTlsTest, WithVerificationTheVerifierHasToClearTheFinding) {
    EXPECT_EQ(outcomeOf(with(Verifiers::careless, to(nginx))), Untrusted);
    EXPECT_EQ(outcomeOf(with(Verifiers::lax, to(nginx))), "end");
}

TEST_F(EngineTlsTest, VerifierDoesNotAnswerForTheHostsName) {
    CertificateWish wish;
    wish.subject_alt_names = "DNS:other.example";
    const CertificateFiles files = TestCertificates::shared().issue("elsewhere", wish);
    NginxServer::Options options = overTls();
    options.certificate_file = files.certificate_file;
    options.key_file = files.key_file;
    const NginxServer other(options);
    RequestConfig config = with(Verifiers::lax, to(other));
    EXPECT_EQ(outcomeOf(config), Untrusted);
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "end");
}

// --- files that must not hold up the engine ---

using TlsOption = tl::optional<std::string> RequestConfig::*;

class EngineTlsFilesTest : public EngineTlsTest {
 protected:
    std::string pipe(const std::string& name) const {
        const std::string path = directory.path(name);
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }
    RequestConfig withFiles() const {
        RequestConfig config = to(nginx);
        config.ca_file = TestCertificates::shared().caFile();
        config.own_cert = TestCertificates::shared().server().certificate_file;
        config.own_pkey = TestCertificates::shared().server().key_file;
        return config;
    }
    void expectOthersToGoOn() const {
        RequestConfig config;
        config.url = nginx.url("/status/200");
        EXPECT_EQ(outcomeOf(config), "end");
    }

    const TemporaryDirectory directory;
};

TEST_F(EngineTlsFilesTest, PipeFailsItsRequestAlone) {
    const std::string path = pipe("pipe");
    const std::pair<TlsOption, const char*> options[] = {{&RequestConfig::ca_file, "ca_file"},
                                                         {&RequestConfig::own_cert, "own_cert"},
                                                         {&RequestConfig::own_pkey, "own_pkey"}};
    for (const auto& [option, name] : options) {
        RequestConfig config = withFiles();
        config.*option = path;
        EXPECT_EQ(outcomeOf(config),
                  fmt::format("failure 2: {}: '{}' is no regular file: name a PEM file", name, path));
        expectOthersToGoOn();
        config = to(nginx);
        config.*option = path;
        EXPECT_EQ(outcomeOf(config),
                  fmt::format("failure 2: {}: '{}' is no regular file: name a PEM file", name, path));
    }
}

TEST_F(EngineTlsFilesTest, PipeAsTheBundleOfTheHostFailsWhoeverNeedsIt) {
    const std::string path = pipe("bundle.pem");
    const TestHost trusting(bundle(path));
    EXPECT_EQ(outcomeOf(to(nginx)),
              "failure 2: the platform's CA bundle: '" + path + "' is no regular file: name a PEM file");
    EXPECT_EQ(outcomeOf(withFiles()), "end");
    RequestConfig config = to(nginx);
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsFilesTest, PipeInAFolderOfAuthoritiesFailsItsRequestAlone) {
    const std::string path = pipe("0123abcd.0");
    RequestConfig config = to(nginx);
    config.ca_dir = directory.path();
    EXPECT_EQ(outcomeOf(config), "failure 2: ca_dir: '" + path + "' is no regular file: remove it, or make it one");
    expectOthersToGoOn();
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsFilesTest, PipesInTheSecureStoreFailTheHandshakeAlone) {
    pipe("device_cert.der");
    pipe("device_key.der");
    const TestHost device([this](ko::host::Settings& settings) { settings.secure_store_directory = directory.path(); });
    EXPECT_EQ(outcomeOf(to(nginx)), "failure 2: error signaled by ssl ctx callback");
    expectOthersToGoOn();
}

TEST_F(EngineTlsFilesTest, FileThatCanNotBeReadGivesWayToTheDevice) {
    RequestConfig config = withFiles();
    config.own_cert = "/nonexistent/cert.pem";
    EXPECT_EQ(outcomeOf(config), "end");
}

// Standard input that never says anything: whoever asks there waits for ever.
class MuteStandardInput {
 public:
    MuteStandardInput() : before_(dup(STDIN_FILENO)) {
        int ends[2] = {};
        EXPECT_EQ(::pipe(ends), 0);
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        writer_ = ends[1];
    }
    MuteStandardInput(const MuteStandardInput&) = delete;
    MuteStandardInput& operator=(const MuteStandardInput&) = delete;
    ~MuteStandardInput() {
        dup2(before_, STDIN_FILENO);
        close(before_);
        close(writer_);
    }

 private:
    int before_;
    int writer_;
};

class EngineTlsPassPhraseTest : public EngineTlsFilesTest {
 protected:
    std::string file(const std::string& name, const std::string& text) const {
        writeWholeFile(directory.path(name), text);
        return directory.path(name);
    }
    // A file of PEM that says of its first block that it is encrypted.
    static std::string marked(std::string pem) {
        const auto end = pem.find('\n');
        return pem.insert(end + 1,
                          "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n");
    }

    const MuteStandardInput mute;
};

TEST_F(EngineTlsPassPhraseTest, EncryptedKeyIsNamed) {
    RequestConfig config = withFiles();
    config.own_pkey = file("key.pem", marked(readWholeFile(*config.own_pkey)));
    EXPECT_THAT(outcomeOf(config),
                StartsWith("failure 2: own_pkey: the private key in '" + *config.own_pkey + "' is encrypted"));
    expectOthersToGoOn();
}

TEST_F(EngineTlsPassPhraseTest, EncryptedKeyIsNoConcernOfARequestThatDoesNotUseIt) {
    RequestConfig config = withFiles();
    config.own_pkey = file("key.pem", marked(readWholeFile(*config.own_pkey)));
    config.own_cert = "/nonexistent/cert.pem";
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsPassPhraseTest, NobodyIsAskedWhereverItStands) {
    RequestConfig config = withFiles();
    config.own_pkey = file("key.pem", std::string(20000, '\n') + marked(readWholeFile(*config.own_pkey)));
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 2: unable to set private key file"));
    config = withFiles();
    config.own_cert = file("cert.pem", marked(readWholeFile(*config.own_cert)));
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 2: could not load PEM client certificate"));
    config = withFiles();
    config.ca_file = file("ca.pem", marked(readWholeFile(*config.ca_file)));
    EXPECT_THAT(outcomeOf(config), StartsWith("failure 2: error setting certificate"));
    expectOthersToGoOn();
}

// --- the device ---

TEST_F(EngineTlsTest, DeviceWithoutAnIdentityHasNoTls) {
    const TestHost empty([](ko::host::Settings& settings) { settings.secure_store_directory = "/nonexistent"; });
    const LogCapture log("HttpClient", 1);
    const std::string text = "error signaled by ssl ctx callback";
    const auto made = run(to(nginx));
    made->outcome.awaitCount(1);
    EXPECT_THAT(made->outcome.events(), ElementsAre("failure 2: " + text));
    const std::string host_name = "127.0.0.1:" + std::to_string(nginx.tlsPort());
    EXPECT_THAT(log.texts(),
                IsSupersetOf({std::string("setMicToCtx: Failed Fetch the MIC"),
                              std::string("Got unexpected Curl error code: 2"),
                              fmt::format("({}) Failed to connect to '{}': {}", made->id(), host_name, text)}));
    RequestConfig config = to(nginx);
    config.tls_verify = false;
    EXPECT_EQ(outcomeOf(config), "failure 2: " + text);
    config.url = nginx.url("/status/200");
    EXPECT_EQ(outcomeOf(config), "end");
}

TEST_F(EngineTlsTest, RequestWithFilesNeedsNoIdentityOfTheDevice) {
    const TestHost empty([](ko::host::Settings& settings) { settings.secure_store_directory = "/nonexistent"; });
    RequestConfig config = to(nginx);
    config.ca_file = TestCertificates::shared().caFile();
    config.own_cert = TestCertificates::shared().server().certificate_file;
    config.own_pkey = TestCertificates::shared().server().key_file;
    EXPECT_EQ(outcomeOf(config), "end");
    EXPECT_EQ(outcomeOf(with(Verifiers::neutral, config)), "end");
}

}  // namespace
}  // namespace kel::http::test
