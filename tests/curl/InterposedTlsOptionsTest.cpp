// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>

#include "curl/Interposed.h"
#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "fixture/TestClock.h"
#include "fixture/TestDevice.h"
#include "fixture/TestHost.h"
#include "fixture/Verifiers.h"
#include "kel-http/curl/EngineTls.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using Options = std::vector<std::string>;

const std::string SystemsBundle = "/etc/ssl/certs/ca-certificates.crt";

// It has several names.
const std::string PassPhrase = "CURLOPT_" + std::to_string(static_cast<int>(CURLOPT_KEYPASSWD));

const Options Identity = {"CURLOPT_SSL_CTX_DATA", "CURLOPT_SSL_CTX_FUNCTION", "CURLOPT_SSLCERT",
                          "CURLOPT_SSLCERTTYPE",  "CURLOPT_SSLKEY",           "CURLOPT_SSLKEYTYPE"};
const Options OwnConnection = {"CURLOPT_FRESH_CONNECT", "CURLOPT_FORBID_REUSE", "CURLOPT_SSL_SESSIONID_CACHE",
                               "CURLOPT_HTTP_VERSION"};
const Options All_of_tls = {"CURLOPT_SSLVERSION",
                            "CURLOPT_SSL_CTX_DATA",
                            "CURLOPT_SSL_CTX_FUNCTION",
                            "CURLOPT_SSLCERT",
                            "CURLOPT_SSLCERTTYPE",
                            "CURLOPT_SSLKEY",
                            "CURLOPT_SSLKEYTYPE",
                            PassPhrase,
                            "CURLOPT_SSL_VERIFYPEER",
                            "CURLOPT_SSL_VERIFYHOST",
                            "CURLOPT_CAINFO",
                            "CURLOPT_CAPATH",
                            "CURLOPT_FRESH_CONNECT",
                            "CURLOPT_FORBID_REUSE",
                            "CURLOPT_SSL_SESSIONID_CACHE",
                            "CURLOPT_HTTP_VERSION"};

// The TLS options that the engine gives libcurl for one request each. They are set whatever the URL is.
class InterposedTlsOptionsTest : public EngineTest {
 protected:
    InterposedTlsOptionsTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        writeWholeFile(cert, "not looked at");
        writeWholeFile(key, "not looked at");
        startEngine();
    }
    ~InterposedTlsOptionsTest() override { stopEngine(); }

    Options optionsOf(const RequestConfig& config, const Options& names = All_of_tls) {
        interposed.forgetOptions();
        last = run(config);
        last->outcome.awaitCount(1);
        drain();
        return noted(names);
    }

    Options noted(const Options& names) const {
        Options found;
        for (const std::string& option : interposed.options()) {
            const std::string name = option.substr(0, option.find('='));
            if (std::find(names.begin(), names.end(), name) != names.end()) found.push_back(option);
        }
        return found;
    }

    RequestConfig withFiles() const {
        RequestConfig config = get();
        config.own_cert = cert;
        config.own_pkey = key;
        return config;
    }

    // libcurl tells connections of different versions apart, and so those that must not be shared.
    static std::string ownVersion(long lowest) {
        return "CURLOPT_SSLVERSION=" + std::to_string(lowest | CURL_SSLVERSION_MAX_DEFAULT);
    }

    Interposed interposed;
    const TemporaryDirectory directory;
    const std::string cert = directory.path("cert.pem");
    const std::string key = directory.path("key.pem");
    RecordingRequestPtr last;
};

TEST_F(InterposedTlsOptionsTest, OrdinaryRequestLetsTheDevicePresentItself) {
    EXPECT_THAT(optionsOf(get()),
                ElementsAre("CURLOPT_SSLVERSION=5", "CURLOPT_SSL_CTX_DATA=set", "CURLOPT_SSL_CTX_FUNCTION=set",
                            "CURLOPT_SSL_VERIFYPEER=1", "CURLOPT_SSL_VERIFYHOST=2", "CURLOPT_CAINFO=" + SystemsBundle,
                            "CURLOPT_CAPATH=null"));
}

TEST_F(InterposedTlsOptionsTest, FilesAloneNeedNoContext) {
    EXPECT_THAT(
        optionsOf(withFiles()),
        ElementsAre("CURLOPT_SSLVERSION=5", "CURLOPT_SSLCERT=" + cert, "CURLOPT_SSLCERTTYPE=PEM",
                    "CURLOPT_SSLKEY=" + key, "CURLOPT_SSLKEYTYPE=PEM", PassPhrase + "=set", "CURLOPT_SSL_VERIFYPEER=1",
                    "CURLOPT_SSL_VERIFYHOST=2", "CURLOPT_CAINFO=" + SystemsBundle, "CURLOPT_CAPATH=null"));
}

// Asked about in the handshake, as long as that is ours to see, and beforehand otherwise.
TEST_F(InterposedTlsOptionsTest, ProxyWithTlsSharesNoSessions) {
    NginxServer::Options with_tls;
    with_tls.tls = true;
    const NginxServer proxy(with_tls);
    const TestHost host(withTestDevice);
    engine().setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    const Options sessions = {"CURLOPT_SSL_SESSIONID_CACHE"};
    RequestConfig own_files = withFiles();
    EXPECT_THAT(optionsOf(own_files, sessions), IsEmpty());
    for (RequestConfig config : {get(), own_files}) {
        config.url = "http://host.invalid/";
        config.proxies = {proxy.url()};
        EXPECT_THAT(optionsOf(config, sessions), IsEmpty());
        config.proxies = {proxy.tlsUrl()};
        EXPECT_THAT(optionsOf(config, sessions), ElementsAre("CURLOPT_SSL_SESSIONID_CACHE=0"));
    }
}

TEST_F(InterposedTlsOptionsTest, VerifierHasAConnectionOfItsOwn) {
    RequestConfig config = get();
    config.verifier = Verifiers::neutral;
    EXPECT_THAT(optionsOf(config),
                ElementsAre(ownVersion(5), "CURLOPT_SSL_CTX_DATA=set", "CURLOPT_SSL_CTX_FUNCTION=set",
                            "CURLOPT_SSL_VERIFYPEER=1", "CURLOPT_SSL_VERIFYHOST=2", "CURLOPT_CAINFO=" + SystemsBundle,
                            "CURLOPT_CAPATH=null", "CURLOPT_FRESH_CONNECT=1", "CURLOPT_FORBID_REUSE=1",
                            "CURLOPT_SSL_SESSIONID_CACHE=0", "CURLOPT_HTTP_VERSION=2"));
}

TEST_F(InterposedTlsOptionsTest, PartialChainHasAConnectionOfItsOwn) {
    RequestConfig config = get();
    config.tls_partial_chain = true;
    EXPECT_THAT(optionsOf(config, OwnConnection),
                ElementsAre("CURLOPT_FRESH_CONNECT=1", "CURLOPT_FORBID_REUSE=1", "CURLOPT_SSL_SESSIONID_CACHE=0",
                            "CURLOPT_HTTP_VERSION=2"));
    EXPECT_THAT(optionsOf(config, Identity), ElementsAre("CURLOPT_SSL_CTX_DATA=set", "CURLOPT_SSL_CTX_FUNCTION=set"));
}

TEST_F(InterposedTlsOptionsTest, FilesDoNotReplaceWhatTheContextIsNeededFor) {
    const auto all = ElementsAre("CURLOPT_SSL_CTX_DATA=set", "CURLOPT_SSL_CTX_FUNCTION=set", "CURLOPT_SSLCERT=" + cert,
                                 "CURLOPT_SSLCERTTYPE=PEM", "CURLOPT_SSLKEY=" + key, "CURLOPT_SSLKEYTYPE=PEM");
    RequestConfig config = withFiles();
    config.verifier = Verifiers::neutral;
    EXPECT_THAT(optionsOf(config, Identity), all);
    config.tls_partial_chain = true;
    EXPECT_THAT(optionsOf(config, Identity), all);
    config.verifier = nullptr;
    EXPECT_THAT(optionsOf(config, Identity), all);
}

TEST_F(InterposedTlsOptionsTest, FilesThatAreNotAllThereAreNotUsed) {
    const auto none = ElementsAre("CURLOPT_SSL_CTX_DATA=set", "CURLOPT_SSL_CTX_FUNCTION=set");
    for (const std::string& missing : {std::string(), std::string("/nonexistent/file")}) {
        RequestConfig config = withFiles();
        config.own_cert = missing;
        EXPECT_THAT(optionsOf(config, Identity), none);
        config = withFiles();
        config.own_pkey = missing;
        EXPECT_THAT(optionsOf(config, Identity), none);
    }
    RequestConfig config = withFiles();
    config.own_cert.reset();
    EXPECT_THAT(optionsOf(config, Identity), none);
    config = withFiles();
    config.own_pkey.reset();
    EXPECT_THAT(optionsOf(config, Identity), none);
}

// One option that libcurl has no memory for.
class RefusedTlsOptionTest : public InterposedTlsOptionsTest, public testing::WithParamInterface<std::string> {
 protected:
    void expectFailureOf(const RequestConfig& config) {
        interposed.fail(GetParam());
        const auto sent = server.requests().size();
        optionsOf(config);
        EXPECT_THAT(last->outcome.events(), ElementsAre(StartsWith("failure 2: ")));
        EXPECT_EQ(server.requests().size(), sent);
    }
};

INSTANTIATE_TEST_SUITE_P(All, RefusedTlsOptionTest, testing::ValuesIn(All_of_tls));

// Otherwise somebody else would be trusted, or another certificate be presented.
TEST_P(RefusedTlsOptionTest, FailsTheRequestThatNeedsIt) {
    RequestConfig config = withFiles();
    config.ca_file = cert;
    config.ca_dir = directory.path();
    config.verifier = Verifiers::neutral;
    expectFailureOf(config);
}

using RefusedVerificationTest = RefusedTlsOptionTest;
INSTANTIATE_TEST_SUITE_P(Off, RefusedVerificationTest,
                         testing::Values("CURLOPT_SSL_VERIFYPEER", "CURLOPT_SSL_VERIFYHOST"));

TEST_P(RefusedVerificationTest, FailsTheRequestThatWantsNone) {
    RequestConfig config = get();
    config.tls_verify = false;
    expectFailureOf(config);
}

TEST_F(InterposedTlsOptionsTest, FolderThatIsNotSetMayBeUnknownToLibcurl) {
    interposed.fail("CURLOPT_CAPATH");
    optionsOf(get());
    EXPECT_THAT(last->outcome.events(), ElementsAre("end"));
}

TEST_F(InterposedTlsOptionsTest, FilesAreNamedInTheLogOfEveryStep) {
    {
        const LogCapture log("HttpClient", 8);
        optionsOf(withFiles());
        EXPECT_THAT(log.lines(),
                    Contains(EngineLine(8, fmt::format("({}) Configuring own certificate for mTLS (cert={}; pkey={})",
                                                       last->id(), cert, key))));
    }
    const LogCapture log("HttpClient", 7);
    optionsOf(withFiles());
    EXPECT_FALSE(log.contains("Configuring own certificate"));
}

TEST_F(InterposedTlsOptionsTest, FilesThatAreNotUsedAreNotNamed) {
    const LogCapture log("HttpClient", 8);
    RequestConfig config = withFiles();
    config.own_pkey = "/nonexistent/key.pem";
    optionsOf(config);
    EXPECT_FALSE(log.contains("Configuring own certificate"));
}

TEST_F(InterposedTlsOptionsTest, FloorIsKeptOnAConnectionOfItsOwn) {
    RequestConfig config = get();
    config.verifier = Verifiers::neutral;
    config.min_tls_version = MinTlsVersion::tls1_0;
    EXPECT_THAT(optionsOf(config), Contains(ownVersion(4)));
    config.min_tls_version = MinTlsVersion::tls1_1;
    EXPECT_THAT(optionsOf(config), Contains(ownVersion(5)));
    config.min_tls_version = MinTlsVersion::tls1_2;
    EXPECT_THAT(optionsOf(config), Contains(ownVersion(6)));
}

TEST_F(InterposedTlsOptionsTest, VerifierWithoutVerificationHasNoAuthorities) {
    RequestConfig config = get();
    config.tls_verify = false;
    config.verifier = Verifiers::neutral;
    EXPECT_THAT(optionsOf(config),
                ElementsAre(ownVersion(5), "CURLOPT_SSL_CTX_DATA=set", "CURLOPT_SSL_CTX_FUNCTION=set",
                            "CURLOPT_SSL_VERIFYHOST=0", "CURLOPT_SSL_VERIFYPEER=0", "CURLOPT_FRESH_CONNECT=1",
                            "CURLOPT_FORBID_REUSE=1", "CURLOPT_SSL_SESSIONID_CACHE=0", "CURLOPT_HTTP_VERSION=2"));
}

TEST_F(InterposedTlsOptionsTest, HostWithoutABundleTrustsNobody) {
    const Options authorities = {"CURLOPT_CAINFO", "CURLOPT_CAPATH"};
    {
        const TestHost host([](ko::host::Settings& settings) { settings.ca_bundles.clear(); });
        EXPECT_THAT(optionsOf(get(), authorities), ElementsAre("CURLOPT_CAINFO=null", "CURLOPT_CAPATH=null"));
    }
    {
        const TestHost host([](ko::host::Settings& settings) { settings.ca_bundles["default"] = "/nonexistent"; });
        EXPECT_THAT(optionsOf(get(), authorities), ElementsAre("CURLOPT_CAINFO=null", "CURLOPT_CAPATH=null"));
    }
    const TestHost host([this](ko::host::Settings& settings) { settings.ca_bundles["default"] = cert; });
    EXPECT_THAT(optionsOf(get(), authorities), ElementsAre("CURLOPT_CAINFO=" + cert, "CURLOPT_CAPATH=null"));
    RequestConfig config = get();
    config.ca_dir = "/ca";
    EXPECT_THAT(optionsOf(config, authorities), ElementsAre("CURLOPT_CAINFO=" + cert, "CURLOPT_CAPATH=/ca"));
}

// A session follows from the one before, and nobody looks at the server's certificate meanwhile.
TEST_F(InterposedTlsOptionsTest, NamesLastForADay) {
    EngineTls tls(*logging::getLogger("HttpClient", 0), &TestClock::now);
    RecordingRequest request;
    request.config.ca_file = cert;
    request.config.ca_dir = "/ca";
    const std::unique_ptr<CURL, void (*)(CURL*)> easy(curl_easy_init(), &curl_easy_cleanup);
    const auto told = [&] {
        interposed.forgetOptions();
        tls.addTlsConfig(easy.get(), request);
        return noted({"CURLOPT_CAINFO", "CURLOPT_CAPATH"});
    };
    const Options first = told();
    EXPECT_THAT(first, ElementsAre("CURLOPT_CAINFO=" + cert, "CURLOPT_CAPATH=/ca"));
    TestClock::advance(std::chrono::hours(24) - std::chrono::seconds(1));
    EXPECT_EQ(told(), first);
    TestClock::advance(std::chrono::seconds(1));
    const Options second = told();
    EXPECT_NE(second.at(0), first.at(0));
    EXPECT_NE(second.at(1), first.at(1));
    EXPECT_EQ(told(), second);
}

#if LIBCURL_VERSION_NUM >= 0x075700
// What was read while memory was short would fail all handshakes for a day.
TEST_F(InterposedTlsOptionsTest, CertificatesThatWereReadBeforeAFailedHandshakeAreReadAnew) {
    const std::string lifetime = "CURLOPT_" + std::to_string(static_cast<int>(CURLOPT_CA_CACHE_TIMEOUT));
    EngineTls tls(*logging::getLogger("HttpClient", 0), &TestClock::now);
    RecordingRequest request;
    const std::unique_ptr<CURL, void (*)(CURL*)> easy(curl_easy_init(), &curl_easy_cleanup);
    const auto told = [&] {
        interposed.forgetOptions();
        tls.addTlsConfig(easy.get(), request);
        return noted({lifetime});
    };
    EXPECT_THAT(told(), IsEmpty());
    tls.noteResult(CURLE_OK, request);
    tls.noteResult(CURLE_COULDNT_CONNECT, request);
    EXPECT_THAT(told(), IsEmpty());
    tls.noteResult(CURLE_PEER_FAILED_VERIFICATION, request);
    EXPECT_THAT(told(), ElementsAre(lifetime + "=0"));
    TestClock::advance(std::chrono::seconds(7));
    EXPECT_THAT(told(), ElementsAre(lifetime + "=7"));
    TestClock::advance(std::chrono::hours(48));
    EXPECT_THAT(told(), ElementsAre(lifetime + "=86400"));
    tls.noteResult(CURLE_SSL_CONNECT_ERROR, request);
    EXPECT_THAT(told(), ElementsAre(lifetime + "=0"));
}
#endif

}  // namespace
}  // namespace kel::http::test
