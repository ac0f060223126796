// SPDX-License-Identifier: MIT
#include "kel-http/curl/Tls.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <array>
#include <memory>
#include <optional>

#include "certificate/certificate.h"
#include "curl/LineMatcher.h"
#include "fixture/TestHost.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Context = std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)>;
using PrivateKey = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;

const std::string SetupContext = "CURLcode kel::http::tls::setupSSLCTXCallback(CURL*, void*, void*)";
const std::string SetupVerifier = "CURLcode kel::http::tls::setupVerifierCallback(CURL*, void*, void*)";
const std::string SetupPartialChain = "CURLcode kel::http::tls::configurePartialChain(CURL*, void*, void*)";
const std::string SetupDevice = "CURLcode kel::http::tls::setMicToCtx(CURL*, void*, void*)";

int acceptAll(int /*accepted*/, X509_STORE_CTX* /*chain*/) {
    return 1;
}

int acceptWithoutThrowing(int /*accepted*/, X509_STORE_CTX* /*chain*/) noexcept {
    return 1;
}

Context newContext() {
    return {SSL_CTX_new(TLS_client_method()), SSL_CTX_free};
}

const char* textIn(const Context& context) {
    return static_cast<const char*>(SSL_CTX_get_ex_data(context.get(), certificate::sslctx_data_index()));
}

bool allowsPartialChains(const Context& context) {
    X509_STORE* const store = SSL_CTX_get_cert_store(context.get());
    return (X509_VERIFY_PARAM_get_flags(X509_STORE_get0_param(store)) & X509_V_FLAG_PARTIAL_CHAIN) != 0;
}

std::string commonName(X509* certificate) {
    std::array<char, 64> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name.data(), 64);
    return name.data();
}

const std::string& device() {
    return TestCertificates::shared().device();
}

// The functions that libcurl calls with an SSL_CTX of its own, called with one of the test's. Whatever they do, nothing
// is left in OpenSSL's error queue, where the next to look would take it for their own.
class TlsContextTest : public testing::Test {
 protected:
    ~TlsContextTest() override { EXPECT_EQ(ERR_peek_error(), 0UL); }

    // The secure store has these files from now on.
    void store(const std::string& certificate, const std::string& key) {
        writeWholeFile(directory.path("device_cert.der"), certificate);
        writeWholeFile(directory.path("device_key.der"), key);
        host.reset();
        host.emplace([this](ko::host::Settings& settings) { settings.secure_store_directory = directory.path(); });
    }
    void storeDevice() { store(certificateOf(device()), keyOf(device())); }
    static std::string certificateOf(const std::string& folder) { return readWholeFile(folder + "/device_cert.der"); }
    static std::string keyOf(const std::string& folder) { return readWholeFile(folder + "/device_key.der"); }

    void useFiles() {
        config.own_cert = TestCertificates::shared().server().certificate_file;
        config.own_pkey = TestCertificates::shared().server().key_file;
    }

    CURLcode setUp() { return tls::setupSSLCTXCallback(nullptr, context.get(), &config); }
    CURLcode setUpDevice() { return tls::setMicToCtx(nullptr, context.get(), &config); }

    bool hasCertificate() const { return SSL_CTX_get0_certificate(context.get()) != nullptr; }
    bool hasKey() const { return SSL_CTX_get0_privatekey(context.get()) != nullptr; }

    const LogCapture log{"HttpClient", 1};
    const TemporaryDirectory directory;
    std::optional<TestHost> host;
    const Context context = newContext();
    RequestConfig config;
};

using TlsContextDeathTest = TlsContextTest;

// --- what is missing ---

TEST_F(TlsContextTest, RequestIsMissing) {
    EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, context.get(), nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(tls::setMicToCtx(nullptr, context.get(), nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, SetupContext + ": Missing RequestConfig"),
                                         EngineLine(1, SetupVerifier + ": Missing RequestConfig"),
                                         EngineLine(1, SetupDevice + ": Missing RequestConfig")));
}

TEST_F(TlsContextTest, ContextIsMissing) {
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(tls::configurePartialChain(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(tls::setMicToCtx(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, SetupVerifier + ": Missing SSL_CTX"),
                                         EngineLine(1, SetupPartialChain + ": Missing SSL_CTX"),
                                         EngineLine(1, SetupDevice + ": Missing SSL_CTX")));
}

TEST_F(TlsContextTest, ContextIsAskedForBeforeTheRequest) {
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, nullptr, nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(tls::setMicToCtx(nullptr, nullptr, nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.texts(), ElementsAre(SetupVerifier + ": Missing SSL_CTX", SetupDevice + ": Missing SSL_CTX"));
}

TEST_F(TlsContextTest, FirstStepThatFailsEndsTheSetUp) {
    config.verifier = acceptAll;
    config.tls_partial_chain = true;
    EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    config.verifier = nullptr;
    EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    config.tls_partial_chain = false;
    EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.texts(), ElementsAre(SetupVerifier + ": Missing SSL_CTX", SetupPartialChain + ": Missing SSL_CTX",
                                         SetupDevice + ": Missing SSL_CTX"));
}

// --- the verifier ---

TEST_F(TlsContextTest, VerifierIsInstalledWithItsText) {
    config.verifier = acceptAll;
    config.verifier_data = "text for the verifier";
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), &config), CURLE_OK);
    EXPECT_EQ(SSL_CTX_get_verify_callback(context.get()), acceptAll);
    EXPECT_EQ(SSL_CTX_get_verify_mode(context.get()), SSL_VERIFY_PEER);
    EXPECT_STREQ(textIn(context), "text for the verifier");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TlsContextTest, VerifierMayPromiseNotToThrow) {
    config.verifier = acceptWithoutThrowing;
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), &config), CURLE_OK);
    EXPECT_EQ(SSL_CTX_get_verify_callback(context.get()), acceptWithoutThrowing);
}

TEST_F(TlsContextTest, TextOutlivesTheRequest) {
    {
        RequestConfig short_lived;
        short_lived.verifier = acceptAll;
        short_lived.verifier_data = std::string(100, 'x');
        EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), &short_lived), CURLE_OK);
        EXPECT_NE(textIn(context), short_lived.verifier_data->c_str());
    }
    EXPECT_EQ(textIn(context), std::string(100, 'x'));
}

TEST_F(TlsContextTest, TextThatIsNotSetIsNull) {
    config.verifier = acceptAll;
    config.verifier_data = "";
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), &config), CURLE_OK);
    EXPECT_STREQ(textIn(context), "");
    config.verifier_data.reset();
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), &config), CURLE_OK);
    EXPECT_EQ(textIn(context), nullptr);
}

TEST_F(TlsContextTest, EachContextHasItsOwnText) {
    const Context other = newContext();
    config.verifier = acceptAll;
    config.verifier_data = "first";
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, context.get(), &config), CURLE_OK);
    config.verifier_data = "second";
    EXPECT_EQ(tls::setupVerifierCallback(nullptr, other.get(), &config), CURLE_OK);
    EXPECT_STREQ(textIn(context), "first");
    EXPECT_STREQ(textIn(other), "second");
}

TEST_F(TlsContextDeathTest, VerifierThatIsNoPlainFunctionStops) {
    config.verifier = [](int, X509_STORE_CTX*) { return 1; };
    EXPECT_DEATH(tls::setupVerifierCallback(nullptr, context.get(), &config),
                 "kel-http/curl/Tls.*Assertion '.*' failed");
}

TEST_F(TlsContextDeathTest, MissingVerifierStops) {
    EXPECT_DEATH(tls::setupVerifierCallback(nullptr, context.get(), &config),
                 "kel-http/curl/Tls.*Assertion '.*' failed");
}

// --- partial chains ---

TEST_F(TlsContextTest, PartialChainsAreAllowedWhenAskedFor) {
    EXPECT_FALSE(allowsPartialChains(context));
    EXPECT_EQ(tls::configurePartialChain(nullptr, context.get(), nullptr), CURLE_OK);
    EXPECT_TRUE(allowsPartialChains(context));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TlsContextTest, ContextWithoutAStoreIsRefused) {
    SSL_CTX_set_cert_store(context.get(), nullptr);
    EXPECT_EQ(tls::configurePartialChain(nullptr, context.get(), &config), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.lines(),
                ElementsAre(EngineLine(1, SetupPartialChain + ": Cannot extract X509_STORE store from an SSL_CTX")));
}

// --- the device's identity ---

TEST_F(TlsContextTest, DeviceIsPresented) {
    storeDevice();
    EXPECT_EQ(setUpDevice(), CURLE_OK);
    ASSERT_TRUE(hasCertificate());
    EXPECT_EQ(commonName(SSL_CTX_get0_certificate(context.get())), "test device");
    EXPECT_EQ(SSL_CTX_check_private_key(context.get()), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TlsContextTest, KeyMayBeWrappedAsPkcs8) {
    const std::string der = keyOf(device());
    const auto* cursor = reinterpret_cast<const unsigned char*>(der.data());
    const PrivateKey key(d2i_AutoPrivateKey(nullptr, &cursor, static_cast<long>(der.size())), EVP_PKEY_free);
    const std::unique_ptr<BIO, int (*)(BIO*)> wrapped(BIO_new(BIO_s_mem()), BIO_free);
    ASSERT_EQ(i2d_PKCS8PrivateKey_bio(wrapped.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
    char* bytes = nullptr;
    const auto size = static_cast<std::size_t>(BIO_get_mem_data(wrapped.get(), &bytes));
    store(certificateOf(device()), std::string(bytes, size));
    EXPECT_EQ(setUpDevice(), CURLE_OK);
    EXPECT_EQ(SSL_CTX_check_private_key(context.get()), 1);
}

TEST_F(TlsContextTest, StoreWithoutACertificate) {
    EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, "setMicToCtx: Failed Fetch the MIC")));
    EXPECT_FALSE(hasCertificate());
}

TEST_F(TlsContextTest, StoreWithoutAKey) {
    store(certificateOf(device()), "");
    EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, "setMicToCtx: Failed Fetch the PKEY")));
    EXPECT_FALSE(hasCertificate());
}

TEST_F(TlsContextTest, CertificateThatIsNone) {
    for (const std::string& bytes : {std::string("no certificate"), std::string(4096, '\0'), keyOf(device()),
                                     certificateOf(device()).substr(0, 300)}) {
        store(bytes, keyOf(device()));
        EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }
    const auto line = EngineLine(1, "setMicToCtx: Failed to load MIC into an openssl X509 object");
    EXPECT_THAT(log.lines(), ElementsAre(line, line, line, line));
}

TEST_F(TlsContextTest, KeyThatIsNone) {
    for (const std::string& bytes :
         {std::string("no key"), std::string(4096, '\0'), certificateOf(device()), keyOf(device()).substr(0, 300)}) {
        store(certificateOf(device()), bytes);
        EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }
    const auto line = EngineLine(1, "setMicToCtx: Failed to load pkey into an openssl EVP_PKEY object");
    EXPECT_THAT(log.lines(), ElementsAre(line, line, line, line));
}

TEST_F(TlsContextTest, KeyOfAnotherDevice) {
    store(certificateOf(device()), keyOf(TestCertificates::shared().issueDevice("other device", {})));
    EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, "setMicToCtx:  SSL_CTX_use_PrivateKey failed..")));
    EXPECT_FALSE(hasKey());
}

TEST_F(TlsContextTest, CertificateThatTheContextDoesNotTake) {
    storeDevice();
    SSL_CTX_set_security_level(context.get(), 5);  // a key of 2048 bits is too weak for that
    EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, "setMicToCtx:  SSL_CTX_use_certificate failed..")));
    EXPECT_FALSE(hasCertificate());
}

TEST_F(TlsContextTest, IdentityInUseOutlivesItsStore) {
    storeDevice();
    EXPECT_EQ(setUpDevice(), CURLE_OK);
    store("", "");
    EXPECT_EQ(commonName(SSL_CTX_get0_certificate(context.get())), "test device");
    const Context other = newContext();
    EXPECT_EQ(tls::setMicToCtx(nullptr, other.get(), &config), CURLE_FAILED_INIT);
}

TEST_F(TlsContextTest, CleanUpFreesWhatThereIs) {
    tls::addMicToCtxCleanup(nullptr, nullptr);
    tls::addMicToCtxCleanup(X509_new(), nullptr);
    tls::addMicToCtxCleanup(nullptr, EVP_PKEY_new());
    tls::addMicToCtxCleanup(X509_new(), EVP_PKEY_new());
}

TEST_F(TlsContextTest, SilentLoggerStaysSilent) {
    const TestHost silent([](ko::host::Settings& settings) { settings.log_levels = {{"HttpClient", 0}}; });
    EXPECT_EQ(setUpDevice(), CURLE_FAILED_INIT);
    EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, context.get(), nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// --- all together ---

TEST_F(TlsContextTest, OrdinaryRequestPresentsTheDeviceAndNothingElse) {
    storeDevice();
    EXPECT_EQ(setUp(), CURLE_OK);
    EXPECT_TRUE(hasCertificate());
    EXPECT_EQ(SSL_CTX_get_verify_callback(context.get()), nullptr);
    EXPECT_EQ(SSL_CTX_get_verify_mode(context.get()), SSL_VERIFY_NONE);
    EXPECT_EQ(textIn(context), nullptr);
    EXPECT_FALSE(allowsPartialChains(context));
}

TEST_F(TlsContextTest, EverythingIsSetUpAtOnce) {
    storeDevice();
    config.verifier = acceptAll;
    config.verifier_data = "text";
    config.tls_partial_chain = true;
    EXPECT_EQ(setUp(), CURLE_OK);
    EXPECT_EQ(SSL_CTX_get_verify_callback(context.get()), acceptAll);
    EXPECT_STREQ(textIn(context), "text");
    EXPECT_TRUE(allowsPartialChains(context));
    EXPECT_TRUE(hasCertificate());
}

TEST_F(TlsContextTest, FilesOfTheRequestAreLeftToLibcurl) {
    storeDevice();
    useFiles();
    config.verifier = acceptAll;
    config.tls_partial_chain = true;
    EXPECT_EQ(setUp(), CURLE_OK);
    EXPECT_EQ(SSL_CTX_get_verify_callback(context.get()), acceptAll);
    EXPECT_TRUE(allowsPartialChains(context));
    EXPECT_FALSE(hasCertificate());
}

// It would join the files' own, and OpenSSL would choose between the two.
TEST_F(TlsContextTest, DeviceStaysAwayWhenFilesGoThatLibcurlHasLoaded) {
    storeDevice();
    useFiles();
    ASSERT_EQ(SSL_CTX_use_certificate_file(context.get(), config.own_cert->c_str(), SSL_FILETYPE_PEM), 1);
    config.own_cert = "/nonexistent/cert.pem";
    EXPECT_EQ(setUp(), CURLE_OK);
    EXPECT_EQ(commonName(SSL_CTX_get0_certificate(context.get())), "localhost");
    EXPECT_FALSE(hasKey());
}

TEST_F(TlsContextTest, DeviceIsPresentedForATransferWithoutFilesWhateverCanBeRead) {
    storeDevice();
    useFiles();
    config.verifier = acceptAll;
    config.tls_partial_chain = true;
    EXPECT_EQ(tls::setupDeviceSSLCTXCallback(nullptr, context.get(), &config), CURLE_OK);
    EXPECT_EQ(SSL_CTX_get_verify_callback(context.get()), acceptAll);
    EXPECT_TRUE(allowsPartialChains(context));
    ASSERT_TRUE(hasCertificate());
    EXPECT_EQ(commonName(SSL_CTX_get0_certificate(context.get())), "test device");
}

TEST_F(TlsContextTest, TransferWithoutFilesFailsWithoutADevice) {
    useFiles();
    EXPECT_EQ(tls::setupDeviceSSLCTXCallback(nullptr, context.get(), &config), CURLE_FAILED_INIT);
    EXPECT_EQ(tls::setupDeviceSSLCTXCallback(nullptr, context.get(), nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(tls::setupDeviceSSLCTXCallback(nullptr, nullptr, &config), CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_THAT(log.texts(), ElementsAre("setMicToCtx: Failed Fetch the MIC", SetupContext + ": Missing RequestConfig",
                                         SetupDevice + ": Missing SSL_CTX"));
}

TEST_F(TlsContextTest, FilesThatAreNotAllThereGiveWayToTheDevice) {
    storeDevice();
    const auto presents = [this] {
        const Context fresh = newContext();
        EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, fresh.get(), &config), CURLE_OK);
        return SSL_CTX_get0_certificate(fresh.get()) != nullptr;
    };
    useFiles();
    EXPECT_FALSE(presents());
    config.own_cert = "/nonexistent/cert.pem";
    EXPECT_TRUE(presents());
    config.own_cert = "";
    EXPECT_TRUE(presents());
    config.own_cert.reset();
    EXPECT_TRUE(presents());
    useFiles();
    config.own_pkey = "/nonexistent/key.pem";
    EXPECT_TRUE(presents());
    config.own_pkey = "";
    EXPECT_TRUE(presents());
    config.own_pkey.reset();
    EXPECT_TRUE(presents());
}

}  // namespace
}  // namespace kel::http::test
